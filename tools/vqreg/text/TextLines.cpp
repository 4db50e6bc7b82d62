#include "tools/vqreg/text/TextLines.h"

#include <algorithm>
#include <cctype>

#include "RegLib/text/LineFormat.h"
#include "RegLib/text/ValueData.h"
#include "tools/vqreg/text/Shown.h"

namespace vqreg {

using VQRegLib::CRegLib;

namespace {

// Of a part of a line that is a view into it.
std::size_t placeIn(std::string_view line, std::string_view part) {
    return static_cast<std::size_t>(part.data() - line.data());
}

Fault faultOfUnquotedLine(std::string_view line) {
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    const auto text = std::find_if_not(line.begin(), line.end(), VQRegLib::isBlank);
    if (line.empty()) {
        return {0, "the line is empty", "remove it"};
    }
    if (text == line.end()) {
        return {0, "the line has nothing but blanks", "remove it"};
    }
    if (line.starts_with(kByteOrderMark)) {
        return {0, "a byte order mark stands before the line", "save the file without one"};
    }
    if (*text == '[') {
        return {0, "blanks stand before the \"[\" of a key line", "remove them"};
    }
    if (*text == '#' || *text == ';') {
        return {0, "the format has no comments", "remove the line"};
    }
    return {static_cast<std::size_t>(text - line.begin()), "this is no key line and no value line",
            "write [PATH] or \"NAME\"=TYPE:DATA"};
}

Fault faultOfTypeWord(std::string_view word, std::size_t at) {
    std::string lower(word);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    const std::size_t first = std::min(lower.find_first_not_of(" \t"), lower.size());
    lower = lower.substr(first, lower.find_last_not_of(" \t") + 1 - first);
    const bool isMeant = VQRegLib::typeOfWord(lower) != CRegLib::eNone;
    return {at, shown(word) + " is no type",
            isMeant ? "write " + lower + ", in lower case and without blanks"
                    : "write string, dword or binary"};
}

Fault faultOfParts(VQRegLib::eLineFault fault, std::string_view line, const ValueLine& parts,
                   std::string_view typeWord) {
    const std::size_t nameEnd = parts.nameAt + parts.name.size();
    switch (fault) {
        case VQRegLib::eLineFault::eNotClosed:
            return {parts.nameAt - 1, "the value's name has no closing quote",
                    "write \"NAME\"=TYPE:DATA"};
        case VQRegLib::eLineFault::eNoEquals:
            return {nameEnd + 1, "the value's name is not followed by \"=\"",
                    "write \"NAME\"=TYPE:DATA; a name cannot hold a double quote"};
        case VQRegLib::eLineFault::eNoColon:
            return {line.size(), "\":\" is missing between type and data",
                    "write \"NAME\"=TYPE:DATA"};
        default:
            return faultOfTypeWord(typeWord, placeIn(line, typeWord));
    }
}

void findNumberOddities(const ValueLine& parts, std::vector<Fault>& faults) {
    const auto bad = std::find_if_not(parts.data.begin(), parts.data.end(), VQRegLib::isHexDigit);
    if (bad == parts.data.end() && parts.data.size() == 8) {
        return;
    }
    const std::string read = "it is read as " + std::to_string(valueOf(parts).number);
    const std::string mend = "write eight hexadecimal digits";
    const auto at = static_cast<std::size_t>(bad - parts.data.begin());
    if (bad != parts.data.end()) {
        faults.push_back(
            {parts.dataAt + at, shown({&*bad, 1}) + " is no hexadecimal digit: " + read, mend});
    } else {
        faults.push_back({parts.dataAt,
                          "the number has " + std::to_string(parts.data.size()) +
                              " digits instead of eight: " + read,
                          mend});
    }
}

void findBinaryOddities(const ValueLine& parts, std::vector<Fault>& faults) {
    const auto bad = std::find_if_not(parts.data.begin(), parts.data.end(), VQRegLib::isHexDigit);
    if (bad != parts.data.end()) {
        faults.push_back({parts.dataAt + static_cast<std::size_t>(bad - parts.data.begin()),
                          shown({&*bad, 1}) + " is no hexadecimal digit: other bytes are read",
                          "write two hexadecimal digits for each byte, without separators"});
    } else if (parts.data.size() % 2 != 0) {
        faults.push_back({parts.dataAt + parts.data.size() - 1,
                          "the number of digits is odd: the last one does not count",
                          "write two hexadecimal digits for each byte"});
    }
}

}  // namespace

bool PieceReader::next(Piece& piece) {
    if (!VQRegLib::takePiece(m_rest, true, piece.bytes)) {
        return false;
    }
    const bool isEnded = piece.bytes.back() == '\n';
    piece.line = m_line;
    piece.offset = m_offset;
    piece.isLast = isEnded || m_rest.empty();
    m_offset += piece.bytes.size();
    if (isEnded) {
        ++m_line;
        m_offset = 0;
    }
    return true;
}

std::string_view cutPiece(std::string_view bytes, eCut& cut) {
    const std::string_view line = VQRegLib::lineOfPiece(bytes);
    const std::string_view end = bytes.substr(line.size());
    if (end.starts_with('\0')) {
        cut = eCut::eNul;
    } else if (end.starts_with('\r')) {
        cut = end == "\r" || end == "\r\n" ? eCut::eLineEnd : eCut::eCarriageReturn;
    } else {
        cut = eCut::eNone;
    }
    return line;
}

std::optional<Fault> readValueLine(std::string_view line, ValueLine& parts) {
    VQRegLib::CValueLine split;
    const VQRegLib::eLineFault fault = VQRegLib::splitValueLine(line, split);
    if (fault == VQRegLib::eLineFault::eNoQuote) {
        return faultOfUnquotedLine(line);
    }
    parts.name = split.name;
    parts.nameAt = placeIn(line, split.name);
    parts.type = split.type;
    if (fault != VQRegLib::eLineFault::eNone) {
        return faultOfParts(fault, line, parts, split.typeWord);
    }
    (void)VQRegLib::dataOfLine(line, parts.data);  // it has some: it was split
    parts.dataAt = placeIn(line, parts.data);
    return std::nullopt;
}

std::vector<Fault> oddities(const ValueLine& parts) {
    std::vector<Fault> faults;
    if (parts.nameAt > 1) {
        faults.push_back({0, "the text before the name is ignored", "remove it"});
    }
    const std::size_t nameEnd = parts.nameAt + parts.name.size();
    if (parts.dataAt <= nameEnd) {
        faults.push_back({parts.dataAt - 1,
                          "a \":\" stands before the type: what follows it is taken for the data",
                          "choose a name without \":\""});
        return faults;
    }
    if (parts.type == CRegLib::eDword) {
        findNumberOddities(parts, faults);
    } else if (parts.type == CRegLib::eBinary) {
        findBinaryOddities(parts, faults);
    }
    return faults;
}

Value valueOf(const ValueLine& parts) {
    Value value;
    value.name = parts.name;
    value.type = parts.type;
    if (parts.type == CRegLib::eDword) {
        value.number = VQRegLib::scanHex(parts.data, 8);
    } else if (parts.type == CRegLib::eString) {
        value.bytes = parts.data;
    } else {
        value.bytes = VQRegLib::bytesOfDigits(parts.data);
    }
    return value;
}

std::vector<std::string_view> namesOfKeyLine(std::string_view path) {
    std::vector<std::string_view> names;
    for (std::string_view name; VQRegLib::nextKeyLineName(path, name);) {
        names.push_back(name);
    }
    return names;
}

}  // namespace vqreg
