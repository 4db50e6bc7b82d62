#include "tools/vqreg/text/DataText.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

#include "RegLib/text/LineFormat.h"
#include "RegLib/text/ValueData.h"
#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/base/FileText.h"
#include "tools/vqreg/text/Shown.h"

namespace vqreg {

using VQRegLib::CRegLib;

namespace {

std::optional<std::uint32_t> parseDigits(const char* begin, const char* end, int base) {
    std::uint32_t number = 0;
    const auto [stop, error] = std::from_chars(begin, end, number, base);
    return begin != end && error == std::errc() && stop == end ? std::optional(number)
                                                               : std::nullopt;
}

bool isHexNumber(const std::string& text) {
    return text.starts_with("0x") || text.starts_with("0X");
}

CommandError notHex(const char* forms, const std::string& text) {
    return {eExit::eWrongKind,
            fmt::format("binary data must be {}: \"{}\"", forms, printable(text))};
}

}  // namespace

CRegLib::eDataType guessType(const std::string& text) {
    const bool hasLeadingZero = text.size() > 1 && text[0] == '0';
    const bool isShort = text.size() <= 10;
    const bool mayBeNumber = isHexNumber(text) ? isShort : !hasLeadingZero;
    return mayBeNumber && parseNumber(text) ? CRegLib::eDword : CRegLib::eString;
}

std::optional<std::uint32_t> parseNumber(const std::string& text) {
    const char* const end = text.data() + text.size();
    return isHexNumber(text) ? parseDigits(text.data() + 2, end, 16)
                             : parseDigits(text.data(), end, 10);
}

std::optional<std::string> parseHex(std::string_view text) {
    if (text.size() % 2 != 0 || !std::all_of(text.begin(), text.end(), VQRegLib::isHexDigit)) {
        return std::nullopt;
    }
    return VQRegLib::bytesOfDigits(text);
}

void parseData(const std::string& text, Value& value) {
    const bool isInput = value.type == CRegLib::eBinary && (text == "-" || text.starts_with('@'));
    if (isInput && text == "@") {
        throw CommandError(eExit::eUsage, "\"@\" needs the name of a file behind it");
    }
    if (isInput) {
        value.bytes = readInput(text == "-" ? text : text.substr(1));
    } else if (value.type == CRegLib::eBinary && !parseHex(text)) {
        throw notHex("pairs of hexadecimal digits, @FILE or -", text);
    } else {
        parseTyped(text, value);
    }
}

void parseTyped(const std::string& text, Value& value) {
    switch (value.type) {
        case CRegLib::eDword: {
            const auto number = parseNumber(text);
            if (!number) {
                throw CommandError(eExit::eWrongKind,
                                   fmt::format("a dword must be a number from 0 to 4294967295, in "
                                               "decimal or with 0x: \"{}\"",
                                               printable(text)));
            }
            value.number = *number;
            break;
        }
        case CRegLib::eBinary: {
            auto bytes = parseHex(text);
            if (!bytes) {
                throw notHex("pairs of hexadecimal digits", text);
            }
            value.bytes = std::move(*bytes);
            break;
        }
        default:
            value.bytes = text;
    }
}

std::string_view typeName(CRegLib::eDataType type) {
    const std::string_view word = VQRegLib::wordOfType(type);
    return word.empty() ? "none" : word;
}

std::string dataText(const Value& value) {
    switch (value.type) {
        case CRegLib::eDword:
            return std::to_string(value.number);
        case CRegLib::eBinary:
            return VQRegLib::hexText(value.bytes);
        default:
            return value.bytes;
    }
}

}  // namespace vqreg
