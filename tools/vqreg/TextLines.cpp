#include "tools/vqreg/TextLines.h"

#include <algorithm>
#include <cctype>

#include "tools/vqreg/HexDigits.h"

namespace vqreg {

using VQRegLib::CRegLib;

namespace {

bool isBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// The library reads numbers as scanf does for "%X": blanks, a sign and "0x" count.
std::uint32_t scanHex(std::string_view text, std::size_t width) {
    while (!text.empty() && isBlank(text.front())) {
        text.remove_prefix(1);
    }
    text = text.substr(0, width);
    bool isNegative = false;
    if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
        isNegative = text.front() == '-';
        text.remove_prefix(1);
    }
    if (text.starts_with("0x") || text.starts_with("0X")) {
        text.remove_prefix(2);
    }
    std::uint32_t number = 0;
    for (const char c : text) {
        const auto digit = hexDigitValue(c);
        if (!digit) {
            break;
        }
        number = number * 16 + *digit;
    }
    return isNegative ? 0 - number : number;
}

CRegLib::eDataType typeOfWord(std::string_view word) {
    if (word == "binary") {
        return CRegLib::eBinary;
    }
    if (word == "dword") {
        return CRegLib::eDword;
    }
    return word == "string" ? CRegLib::eString : CRegLib::eNone;
}

Fault faultOfUnquotedLine(std::string_view line) {
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    const auto text = std::find_if_not(line.begin(), line.end(), isBlank);
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
    const bool isMeant = typeOfWord(lower) != CRegLib::eNone;
    return {at, shown(word) + " is no type",
            isMeant ? "write " + lower + ", in lower case and without blanks"
                    : "write string, dword or binary"};
}

void findNumberOddities(const ValueLine& parts, std::vector<Fault>& faults) {
    const auto bad = std::find_if(parts.data.begin(), parts.data.end(),
                                  [](char c) { return !hexDigitValue(c); });
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
    const auto bad = std::find_if(parts.data.begin(), parts.data.end(),
                                  [](char c) { return !hexDigitValue(c); });
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
    if (m_rest.empty()) {
        return false;
    }
    const std::size_t feed = m_rest.substr(0, kLongestPiece).find('\n');
    piece.line = m_line;
    piece.offset = m_offset;
    piece.bytes = m_rest.substr(0, feed == std::string_view::npos ? kLongestPiece : feed + 1);
    m_rest.remove_prefix(piece.bytes.size());
    piece.isLast = feed != std::string_view::npos || m_rest.empty();
    m_offset += piece.bytes.size();
    if (feed != std::string_view::npos) {
        ++m_line;
        m_offset = 0;
    }
    return true;
}

std::string_view cutPiece(std::string_view bytes, eCut& cut) {
    const std::size_t nul = bytes.find('\0');
    cut = nul == std::string_view::npos ? eCut::eNone : eCut::eNul;
    std::string_view line = bytes.substr(0, nul);
    const std::size_t carriageReturn = line.find('\r');
    if (carriageReturn != std::string_view::npos) {
        const std::string_view after = bytes.substr(carriageReturn + 1);
        cut = after.empty() || after == "\n" ? eCut::eLineEnd : eCut::eCarriageReturn;
        return line.substr(0, carriageReturn);
    }
    return line.substr(0, line.find('\n'));
}

std::optional<Fault> readValueLine(std::string_view line, ValueLine& parts) {
    const std::size_t open = line.find('"');
    if (open == std::string_view::npos) {
        return faultOfUnquotedLine(line);
    }
    const std::size_t close = line.find('"', open + 1);
    if (close == std::string_view::npos) {
        return Fault{open, "the value's name has no closing quote", "write \"NAME\"=TYPE:DATA"};
    }
    if (close + 1 >= line.size() || line[close + 1] != '=') {
        return Fault{close + 1, "the value's name is not followed by \"=\"",
                     "write \"NAME\"=TYPE:DATA; a name cannot hold a double quote"};
    }
    const std::size_t typeAt = close + 2;
    const std::size_t colon = line.find(':', typeAt);
    if (colon == std::string_view::npos) {
        return Fault{line.size(), "\":\" is missing between type and data",
                     "write \"NAME\"=TYPE:DATA"};
    }
    parts.name = line.substr(open + 1, close - open - 1);
    parts.nameAt = open + 1;
    const std::string_view word = line.substr(typeAt, colon - typeAt);
    parts.type = typeOfWord(word);
    if (parts.type == CRegLib::eNone) {
        return faultOfTypeWord(word, typeAt);
    }
    parts.dataAt = line.find(':') + 1;
    parts.data = line.substr(parts.dataAt);
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
        value.number = scanHex(parts.data, 8);
    } else if (parts.type == CRegLib::eString) {
        value.bytes = parts.data;
    } else {
        for (std::size_t at = 0; at + 2 <= parts.data.size(); at += 2) {
            value.bytes += static_cast<char>(scanHex(parts.data.substr(at), 2) & 0xFF);
        }
    }
    return value;
}

std::vector<std::string_view> namesOfKeyLine(std::string_view path) {
    std::vector<std::string_view> names;
    while (!path.empty()) {
        const std::size_t end = path.find('/');
        names.push_back(path.substr(0, end));
        path.remove_prefix(end == std::string_view::npos ? path.size() : end + 1);
    }
    return names;
}

std::string escaped(std::string_view text) {
    std::string result;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < ' ' || byte == 0x7F) {
            result += "\\x";
            appendHex(result, byte);
        } else {
            result += c;
        }
    }
    return result;
}

std::string shown(std::string_view text) {
    constexpr std::size_t kLongestShown = 60;
    std::size_t size = std::min(text.size(), kLongestShown);
    while (size > 0 && size < text.size() &&
           (static_cast<unsigned char>(text[size]) & 0xC0) == 0x80) {
        --size;  // not in the middle of a character
    }
    return '"' + escaped(text.substr(0, size)) + (size < text.size() ? "...\"" : "\"");
}

}  // namespace vqreg
