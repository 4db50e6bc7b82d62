#include "Texts.h"

#include <cstdio>

namespace vqcompare {

namespace {

constexpr const char* kKeys[] = {"Net",      "Dns", "disk",         "NetworkA",
                                 "NetworkB", "a b", "\xC3\x84rger", "longer than eight letters"};
constexpr const char* kValues[] = {"Port",       "Mode",        "a",
                                   "v",          "PortNumberA", "PortNumberB",
                                   "with blank", "\xC3\x9F",    "longer than eight values"};
constexpr const char* kOddKeys[] = {"",    "<root>", "<ROOT>", "a]b", "]",        "a\nb",
                                    "a\r", "a:",     "\"a\"",  "[a",  "Velquist", "=dword:"};
constexpr const char* kOddValues[] = {"",     "a:b", ":", "a\"b", "\"",     "x\"=string:y", "a\nb",
                                      "a\rb", "a/b", "=", "]",    "<root>", "a=b",          "[a]"};
constexpr const char* kOddTexts[] = {
    "",   "x\ny",    "x\r",      "\n", "x\n[Velquist/a]",  "x\n\"a\"=dword:1",
    "\"", "string:", "%s%n %5d", "=",  "x\n\"p\"=string:q"};

constexpr const char* kOddNumbers[] = {"", "1", "g", "0x10", "-1", "123456789", "1f ", "abcdefAB"};

std::string hex(std::size_t number, int digits) {
    char text[64];
    std::snprintf(text, sizeof text, "%0*zX", digits, number);
    return text;
}

}  // namespace

std::string Texts::anyCase(std::string text) {
    for (char& letter : text) {
        const bool small = letter >= 'a' && letter <= 'z';
        if (small && m_chance.oneIn(6)) {
            letter = static_cast<char>(letter - 'a' + 'A');
        }
    }
    return text;
}

std::string Texts::name(bool ofKey) {
    // Now and then one of many, which makes keys with many values.
    if (m_chance.oneIn(8)) {
        return "n" + std::to_string(m_chance.below(400));
    }
    // Now and then one that belongs to the other kind, which displaces or is refused.
    const bool key = ofKey != m_chance.oneIn(12);
    return anyCase(key ? m_chance.oneOf(kKeys) : m_chance.oneOf(kValues));
}

std::string Texts::keyName() {
    return odd() ? m_chance.oneOf(kOddKeys) : name(true);
}

std::string Texts::valueName() {
    if (!odd()) {
        return name(false);
    }
    return m_chance.oneIn(10) ? std::string(2000 + m_chance.below(100), 'n')
                              : m_chance.oneOf(kOddValues);
}

std::string Texts::path() {
    std::string text = keyName();
    for (std::size_t more = m_chance.weighted({5, 4, 2, 1}); more > 0; --more) {
        text += (m_chance.oneIn(3) ? "\\" : "/") + keyName();
    }
    return text;
}

std::string Texts::text() {
    if (odd()) {
        return m_chance.oneIn(6) ? std::string(1990 + m_chance.below(100), 't')
                                 : m_chance.oneOf(kOddTexts);
    }
    std::string text(m_chance.below(m_chance.oneIn(10) ? 300 : 40), ' ');
    for (char& letter : text) {
        letter = static_cast<char>(' ' + m_chance.below(95));
    }
    return text;
}

std::string Texts::bytes() {
    std::string bytes(m_chance.below(odd() ? 1030 : 24), '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>(m_chance.below(256));
    }
    return bytes;
}

std::string Texts::keyLine() {
    std::string path = m_chance.oneIn(20) ? "" : m_chance.oneIn(6) ? "Other" : "Velquist";
    for (std::size_t more = m_chance.weighted({2, 4, 4, 2}); more > 0; --more) {
        path += "/" + keyName();
    }
    return "[" + path + "]";
}

std::string Texts::valueLine() {
    const std::string begin = "\"" + valueName() + "\"=";
    switch (m_chance.weighted({4, 4, 2})) {
        case 0:
            return begin + "dword:" +
                   (odd() ? m_chance.oneOf(kOddNumbers)
                          : hex(m_chance.below(std::size_t{1} << 32), 8));
        case 1:
            return begin + "string:" + text();
        default:
            return begin + "binary:" + hex(m_chance.below(std::size_t{1} << 40), 1);
    }
}

// What editors, disks and people do to lines.
std::string Texts::damaged(std::string line) {
    switch (m_chance.below(8)) {
        case 0:
            return "";
        case 1:
            return line + "\r";
        case 2:
            return line.substr(0, m_chance.below(line.size() + 1));
        case 3:
            line.insert(m_chance.below(line.size() + 1), 1, static_cast<char>(m_chance.below(256)));
            return line;
        case 4:
            return line + std::string(2040 + m_chance.below(20), 'x');
        case 5:
            return " " + line;
        case 6:
            return "[]";
        default:
            return "\"a\"=qword:12";
    }
}

std::string Texts::file(bool damage) {
    std::string text;
    const std::size_t lines = m_chance.below(m_chance.oneIn(8) ? 600 : 60);
    for (std::size_t line = 0; line < lines; ++line) {
        std::string next = line == 0           ? std::string("[Velquist]")
                           : m_chance.oneIn(5) ? keyLine()
                                               : valueLine();
        if (damage && m_chance.oneIn(40)) {
            next = damaged(next);
        }
        text += next + (m_chance.oneIn(200) ? "\r\n" : "\n");
    }
    if (m_chance.oneIn(10) && !text.empty()) {
        text.pop_back();
    }
    return text;
}

}  // namespace vqcompare
