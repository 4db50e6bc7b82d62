#include "kill/Content.h"

#include <cstdio>
#include <cstdlib>

#include "support/Torture.h"

namespace vqtorture {

namespace {

constexpr std::size_t kFillerLength = 1500;

std::string numberLine(const char* name, std::uint32_t number) {
    char line[64];
    std::snprintf(line, sizeof line, "\"%s\"=dword:%08X\n", name, number);
    return line;
}

// The number that is first called so; the text as a whole is compared afterwards.
std::uint32_t numberIn(const std::string& text, const char* name) {
    const std::string begin = std::string("\"") + name + "\"=dword:";
    const std::size_t at = text.find(begin);
    return at == std::string::npos ? 0
                                   : static_cast<std::uint32_t>(std::strtoul(
                                         text.c_str() + at + begin.size(), nullptr, 16));
}

std::uint32_t numberAt(vqtest::Agent& agent, const std::string& path, const char* name) {
    const vqtest::Value value = agent.get(path, name);
    require(value.code == VQRegLib::REGLIB_OK, "a query of " + path + "/" + name + " fails");
    return static_cast<std::uint32_t>(value.dword());
}

std::uint32_t numberAt(vqtest::CRegLib& session, const std::string& path, const char* name) {
    vqtest::CRegKey key;
    vqtest::CRegKey* at = session.RootKey();
    if (path != ".") {
        require(session.VQRegCreateKey(nullptr, path.c_str(), key, 0) == VQRegLib::REGLIB_OK,
                "the key " + path + " is refused");
        at = &key;
    }
    vqtest::CRegLib::eDataType type = vqtest::CRegLib::eNone;
    std::uint32_t number = 0;
    unsigned long size = sizeof number;
    const int code =
        session.VQRegQueryValue(*at, name, type, reinterpret_cast<unsigned char*>(&number), &size);
    require(code == VQRegLib::REGLIB_OK, "a query of " + path + "/" + name + " fails");
    return number;
}

template <typename Seer>
Content seenThrough(Seer& seer) {
    Content seen;
    seen.set = numberAt(seer, ".", "Set");
    seen.other = numberAt(seer, ".", "Other");
    seen.update = numberAt(seer, partName(0), "Update");
    for (int part = 1; part < kParts; ++part) {
        require(numberAt(seer, partName(part), "Update") == seen.update,
                "half of an update is seen");
    }
    return seen;
}

}  // namespace

std::string partName(int part) {
    return "Part" + std::to_string(part);
}

std::string Content::text() const {
    std::string text = "[Velquist]\n" + numberLine("Other", other) + numberLine("Set", set);
    for (int part = 0; part < kParts; ++part) {
        text += "[Velquist/" + partName(part) + "]\n\"Filler\"=string:" +
                std::string(kFillerLength, static_cast<char>('a' + part)) + "\n" +
                numberLine("Update", update);
    }
    return text;
}

std::string Content::words() const {
    return "set " + std::to_string(set) + ", update " + std::to_string(update) + ", other " +
           std::to_string(other);
}

Content contentOf(const std::string& text) {
    const Content content{numberIn(text, "Set"), numberIn(text, "Update"), numberIn(text, "Other")};
    require(text == content.text(),
            "not a whole text, " + std::to_string(text.size()) + " bytes:\n" + text.substr(0, 300));
    return content;
}

Content seenBy(vqtest::CRegLib& session) {
    require(session.RootKey() != nullptr, "a session has no store");
    return seenThrough(session);
}

Content seenBy(vqtest::Agent& agent) {
    return seenThrough(agent);
}

}  // namespace vqtorture
