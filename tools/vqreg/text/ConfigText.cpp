#include "tools/vqreg/text/ConfigText.h"

#include <algorithm>

#include "RegLib/text/LineFormat.h"
#include "tools/vqreg/text/ConfigReader.h"

namespace vqreg {

using VQRegLib::CRegLib;

namespace {

// `path` ends where the name of a sub key belongs.
void composeBelow(const Key& key, std::string& path, std::string& text) {
    for (const auto& entry : key.values) {
        text += lineOf(entry.second);
        text += '\n';
    }
    const std::size_t size = path.size();
    for (const auto& entry : key.keys) {
        path += entry.second.name;
        text += '[';
        text += path;
        text += "]\n";
        path += '/';
        composeBelow(entry.second, path, text);
        path.resize(size);
    }
}

}  // namespace

const Finding* ConfigText::firstError() const {
    const auto found = std::find_if(findings.begin(), findings.end(),
                                    [](const Finding& finding) { return finding.isError; });
    return found == findings.end() ? nullptr : &*found;
}

ConfigText parseConfigText(std::string_view text) {
    ConfigReader reader;
    reader.read(text);
    ConfigText config{reader.takeTop(), reader.findings()};
    if (!reader.isReadable()) {
        config.rescued = reader.allThatCanBeRead();
        config.lostLines = reader.lostLines();
    }
    return config;
}

std::string lineOf(const Value& value) {
    const std::string& bytes = value.bytes;
    switch (value.type) {
        case CRegLib::eDword:
            return VQRegLib::composeDwordLine(value.name, value.number);
        case CRegLib::eString:
            return VQRegLib::composeStringLine(value.name, bytes);
        default:
            return VQRegLib::composeBinaryLine(
                value.name, reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    }
}

std::string composeConfigText(const Key& top) {
    std::string path;
    std::string text;
    composeBelow(top, path, text);
    return text;
}

}  // namespace vqreg
