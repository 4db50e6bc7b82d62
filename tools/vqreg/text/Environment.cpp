#include "tools/vqreg/text/Environment.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <string_view>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/text/DataText.h"
#include "tools/vqreg/text/JsonData.h"
#include "tools/vqreg/text/OthersVariables.h"
#include "tools/vqreg/text/Shown.h"

namespace vqreg {

namespace {

constexpr std::string_view kNameOfEmpty = "DEFAULT";

bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isAscii(char c) {
    return static_cast<unsigned char>(c) < 0x80;
}

// All bytes of a character of UTF-8 but the first.
bool goesOn(char c) {
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

std::string variableName(const std::string& value, const std::string& prefix) {
    std::string name = prefix;
    if (value.empty()) {
        return name += kNameOfEmpty;
    }
    if (prefix.empty() && isDigit(value.front())) {
        name += '_';
    }
    for (std::size_t at = 0; at < value.size(); ++at) {
        const char c = value[at];
        if (isLetter(c) || isDigit(c)) {
            name += c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
        } else if (at == 0 || !goesOn(c) || isAscii(value[at - 1])) {
            name += '_';
        }
    }
    return name;
}

void checkOwn(const Variable& variable) {
    if (const auto others = othersOf(variable.name)) {
        throw CommandError(eExit::eWrongKind,
                           fmt::format("the value \"{}\" would be the variable {}, {}; give it a "
                                       "--prefix",
                                       printable(variable.value), variable.name, *others));
    }
}

// Of a text that is UTF-8.
char32_t characterAt(std::string_view text, std::size_t at) {
    const auto first = static_cast<unsigned char>(text[at]);
    const int more = first < 0x80 ? 0 : first < 0xE0 ? 1 : first < 0xF0 ? 2 : 3;
    char32_t character = more == 0 ? first : first & (0x3FU >> more);
    for (int i = 1; i <= more; ++i) {
        character = (character << 6) |
                    (static_cast<unsigned char>(text[at + static_cast<std::size_t>(i)]) & 0x3FU);
    }
    return character;
}

// The service manager takes no file that has one of the code points which stand for nothing.
bool isNoCharacter(char32_t character) {
    return (character >= 0xFDD0 && character <= 0xFDEF) || (character & 0xFFFE) == 0xFFFE;
}

bool isForUnits(const std::string& text) {
    if (!isUtf8(text)) {
        return false;
    }
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (!goesOn(text[at]) && isNoCharacter(characterAt(text, at))) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool isVariablePrefix(const std::string& prefix) {
    return std::ranges::all_of(prefix, [](char c) { return isLetter(c) || isDigit(c); }) &&
           (prefix.empty() || isLetter(prefix.front()));
}

std::vector<Variable> variablesOf(const Key& key, const std::string& prefix) {
    std::vector<Variable> variables;
    std::map<std::string, std::string> sources;
    for (const auto& entry : key.values) {
        const Value& value = entry.second;
        Variable variable{variableName(value.name, prefix), dataText(value), value.name};
        checkOwn(variable);
        const auto [found, isNew] = sources.emplace(variable.name, value.name);
        if (!isNew) {
            throw CommandError(
                eExit::eWrongKind,
                fmt::format("the values \"{}\" and \"{}\" would both be the variable {}",
                            printable(found->second), printable(value.name), variable.name));
        }
        variables.push_back(std::move(variable));
    }
    return variables;
}

// In double quotes both take a backslash before one of four characters for that character, and all
// else as it stands.
std::string environmentText(const std::vector<Variable>& variables) {
    std::string text;
    for (const Variable& variable : variables) {
        if (!isForUnits(variable.text)) {
            throw CommandError(
                eExit::eWrongKind,
                fmt::format("the text of the value \"{}\" is not UTF-8 or has a code "
                            "point that is no character, and EnvironmentFile= of a "
                            "unit takes no such text",
                            printable(variable.value)));
        }
        text += variable.name + "=\"";
        for (const char c : variable.text) {
            if (std::string_view("\"\\`$").find(c) != std::string_view::npos) {
                text += '\\';
            }
            text += c;
        }
        text += "\"\n";
    }
    return text;
}

}  // namespace vqreg
