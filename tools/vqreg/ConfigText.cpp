#include "tools/vqreg/ConfigText.h"

#include <algorithm>

#include "tools/vqreg/ConfigReader.h"
#include "tools/vqreg/HexDigits.h"

namespace vqreg {

using VQRegLib::CRegLib;

namespace {

void composeValue(const Value& value, std::string& text) {
    text += '"';
    text += value.name;
    if (value.type == CRegLib::eDword) {
        text += "\"=dword:";
        for (int shift = 24; shift >= 0; shift -= 8) {
            appendHex(text, static_cast<unsigned char>(value.number >> shift));
        }
    } else if (value.type == CRegLib::eString) {
        text += "\"=string:";
        text += value.bytes;
    } else {
        text += "\"=binary:";
        text += hexText(value.bytes);
    }
    text += '\n';
}

// `path` ends where the name of a sub key belongs.
void composeBelow(const Key& key, std::string& path, std::string& text) {
    for (const auto& entry : key.values) {
        composeValue(entry.second, text);
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

std::string format(const std::string& file, const Finding& finding) {
    return file + ":" + std::to_string(finding.line) + ":" + std::to_string(finding.column) +
           (finding.isError ? ": error: " : ": warning: ") + finding.what + "; " + finding.mend;
}

bool ConfigText::isReadable() const {
    return std::none_of(findings.begin(), findings.end(),
                        [](const Finding& finding) { return finding.isError; });
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

std::string composeConfigText(const Key& top) {
    std::string path;
    std::string text;
    composeBelow(top, path, text);
    return text;
}

}  // namespace vqreg
