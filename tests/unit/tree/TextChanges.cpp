#include "unit/tree/TextChanges.h"

#include <algorithm>
#include <string>

#include "unit/tree/PlainTree.h"

namespace vqtest {

namespace {

using Lines = std::vector<std::string>;

constexpr std::size_t kLongest = 2048;

Lines linesOf(const std::string& text) {
    Lines lines;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

Lines::iterator at(Lines& lines, std::size_t place) {
    return lines.begin() + static_cast<std::ptrdiff_t>(place);
}

bool isKeyLine(const std::string& line) {
    return line.starts_with('[');
}

std::string nameIn(const std::string& valueLine) {
    const std::size_t open = valueLine.find('"');
    const std::size_t close = open == std::string::npos ? open : valueLine.find('"', open + 1);
    return close == std::string::npos ? "" : valueLine.substr(open + 1, close - open - 1);
}

}  // namespace

std::string TextChanges::name(bool isAny) {
    static const Lines usual = {"a", "b", "c", "d", "aa", "ab", "k", "v",   "Network",
                                "B", "E", "f", "g", "h",  "i",  "j", "Dns", "\xC4\xD6"};
    static const Lines odd = {"<root>", "",    "c:c", "x]y", "q\"q",
                              "s/s",    "l\r", "[",   "n m", std::string(300, 'N')};
    if (isAny && m_isOdd && oneIn(6)) {
        return odd[below(odd.size())];
    }
    const std::string result = usual[below(usual.size())];
    return oneIn(3) ? result : result + std::to_string(below(100));
}

std::string TextChanges::data() {
    const std::size_t size = oneIn(12)              ? below(kLongest - 400)
                             : m_isOdd && oneIn(40) ? kLongest - 30 + below(40)
                                                    : below(12);
    return std::string(size, static_cast<char>('0' + below(10)));
}

std::string TextChanges::valueLine(const std::string& name) {
    static const Lines words = {"dword", "string", "binary"};
    return "\"" + name + "\"=" + words[below(words.size())] + ":" + data();
}

// Any one when there is none of the kind.
std::size_t TextChanges::line(const Lines& lines, bool isKey) {
    std::size_t found = below(lines.size());
    for (int tries = 0; tries < 20 && isKeyLine(lines[found]) != isKey; ++tries) {
        found = below(lines.size());
    }
    return found;
}

std::string TextChanges::keyPath(const Lines& lines) {
    const std::string& found = lines[line(lines, true)];
    return isKeyLine(found) ? found.substr(1, found.find(']') - 1) : "a";
}

std::size_t TextChanges::sectionEnd(const Lines& lines, std::size_t begin) {
    std::size_t end = begin + 1;
    while (end < lines.size() && !isKeyLine(lines[end])) {
        ++end;
    }
    return end;
}

void TextChanges::changeData(Lines& lines) {
    std::string& changed = lines[line(lines, false)];
    const std::size_t colon = changed.rfind(':');
    if (colon == std::string::npos || oneIn(3)) {
        changed += data();
    } else if (oneIn(3)) {
        changed = changed.substr(0, colon + 1) + data();
    } else {
        for (std::size_t at = colon + 1; at < changed.size(); ++at) {
            changed[at] = static_cast<char>('0' + below(10));
        }
    }
}

// Where a writer would have put it.
void TextChanges::insertInOrder(Lines& lines) {
    const std::string added = name(false);
    std::size_t place = line(lines, true) + 1;
    while (place < lines.size() && !isKeyLine(lines[place]) &&
           inLowerCase(nameIn(lines[place])) < inLowerCase(added)) {
        ++place;
    }
    lines.insert(at(lines, place), valueLine(added));
}

void TextChanges::insertSection(Lines& lines) {
    Lines added{"[" + keyPath(lines) + "/" + name(false) + "]"};
    for (std::size_t values = below(4); values > 0; --values) {
        added.push_back(valueLine(name(false)));
    }
    const std::size_t place =
        oneIn(4) ? below(lines.size() + 1) : sectionEnd(lines, line(lines, true));
    lines.insert(at(lines, place), added.begin(), added.end());
}

void TextChanges::moveRange(Lines& lines, std::size_t begin, std::size_t end) {
    const Lines moved(at(lines, begin), at(lines, end));
    lines.erase(at(lines, begin), at(lines, end));
    lines.insert(at(lines, place(lines)), moved.begin(), moved.end());
}

void TextChanges::spellDifferently(std::string& line) {
    for (char& letter : line) {
        const bool isLetter = (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z');
        if (isLetter && oneIn(8)) {
            letter = static_cast<char>(letter ^ 0x20);
        }
    }
}

void TextChanges::breakLine(std::string& line) {
    static const Lines bad = {"", "x", "\"a", "\"a\"", "\"a\"=string", "\"a\"=word:x", "[a", "[]"};
    const std::size_t at = below(line.size() + 1);
    switch (below(7)) {
        case 0:
            line += '\r';
            break;
        case 1:
            line.insert(at, 1, '\r');
            break;
        case 2:
            line.insert(at, 1, '\0');
            break;
        case 3:
            line = bad[below(bad.size())];
            break;
        case 4:
            line += std::string(kLongest - std::min(kLongest - 3, line.size()) - 3 + below(6), 'L');
            break;
        case 5:
            line = isKeyLine(line) ? line + "behind" : "before" + line;
            break;
        default:
            spellDifferently(line);
    }
}

// Lines that name what is of the other kind, or what is not there.
void TextChanges::nameOther(Lines& lines) {
    const std::string path = keyPath(lines);
    const std::string value = nameIn(lines[line(lines, false)]);
    const std::string key = path.substr(path.rfind('/') + 1);
    const Lines added = {
        valueLine(key),
        "[" + path + "/" + value + "]",
        "[" + path + "/" + value + "/" + name(true) + "]",
        "[" + path + "/x/y/" + name(false) + "]",
        "[<root>/" + path + "]",
        "[" + path + "/<root>]",
        "[" + path + "//]",
        "[" + path + "/]",
        valueLine(name(true)),
    };
    lines.insert(at(lines, place(lines)), added[below(added.size())]);
}

void TextChanges::changeUsually(Lines& lines) {
    const std::size_t begin = std::max(line(lines, oneIn(2)), std::size_t{1} % lines.size());
    switch (below(8)) {
        case 0:
            lines.erase(at(lines, begin));
            break;
        case 1:
            lines.erase(at(lines, begin), at(lines, sectionEnd(lines, begin)));
            break;
        case 2:
            insertSection(lines);
            break;
        case 3:
            lines.insert(at(lines, begin), valueLine(name(false)));
            break;
        case 4:
            insertInOrder(lines);
            break;
        default:
            changeData(lines);
    }
}

void TextChanges::changeOddly(Lines& lines) {
    const std::size_t begin = below(lines.size());
    switch (below(6)) {
        case 0:
            lines.insert(at(lines, place(lines)), std::string(lines[begin]));
            break;
        case 1:
            moveRange(lines, begin, begin + 1);
            break;
        case 2:
            moveRange(lines, begin, sectionEnd(lines, begin));
            break;
        case 3:
            nameOther(lines);
            break;
        case 4:
            lines.erase(at(lines, begin), lines.end());
            break;
        default:
            breakLine(lines[begin]);
    }
}

std::string TextChanges::changed(const std::string& text) {
    Lines lines = linesOf(text);
    const bool isOdd = m_isOdd && oneIn(2);
    for (std::size_t left = oneIn(10) ? below(90) : below(5); left > 0; --left) {
        if (lines.empty()) {
            lines = {"[a]", "\"v\"=string:"};
        }
        if (isOdd && oneIn(2)) {
            changeOddly(lines);
        } else {
            changeUsually(lines);
        }
    }
    std::string result;
    for (const std::string& line : lines) {
        result += line + "\n";
    }
    if (m_isOdd && !result.empty() && oneIn(40)) {
        result.pop_back();
    }
    return m_isOdd && oneIn(200) ? std::string() : result;
}

}  // namespace vqtest
