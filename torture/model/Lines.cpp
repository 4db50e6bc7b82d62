#include "model/Lines.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace vqtorture::model {

namespace {

std::string cut(std::string piece) {
    piece.resize(std::min(piece.find('\0'), piece.size()));
    const std::size_t end = std::min(piece.find('\r'), piece.size());
    piece.resize(end < piece.size() ? end : std::min(piece.find('\n'), piece.size()));
    return piece;
}

// A number that does not begin with a digit is 0.
unsigned hexNumber(const char* text, const char* format) {
    unsigned number = 0;
    std::sscanf(text, format, &number);
    return number;
}

int tooSmall(unsigned long& size, std::size_t needed) {
    size = static_cast<unsigned long>(needed);
    return VQRegLib::REGLIB_E_BUFFER_TOO_SMALL;
}

int readDword(const std::string& data, unsigned char* buffer, unsigned long& size) {
    if (size < 4) {
        return tooSmall(size, 4);
    }
    const unsigned number = hexNumber(data.c_str(), "%08X");
    std::memcpy(buffer, &number, 4);
    size = 4;
    return VQRegLib::REGLIB_OK;
}

int readString(const std::string& data, unsigned char* buffer, unsigned long& size) {
    if (size < data.size() + 1) {
        return tooSmall(size, data.size() + 1);
    }
    std::memcpy(buffer, data.c_str(), data.size() + 1);
    size = static_cast<unsigned long>(data.size() + 1);
    return VQRegLib::REGLIB_OK;
}

// A last digit without its second one counts where the buffer has room for it, but not in the size.
int readBinary(const std::string& data, unsigned char* buffer, unsigned long& size) {
    const std::size_t bytes = data.size() / 2;
    if (size < bytes) {
        return tooSmall(size, bytes);
    }
    for (std::size_t i = 0; i < data.size() && i / 2 < size; i += 2) {
        buffer[i / 2] = static_cast<unsigned char>(hexNumber(data.c_str() + i, "%02X"));
    }
    size = static_cast<unsigned long>(bytes);
    return VQRegLib::REGLIB_OK;
}

}  // namespace

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = text.find('\n', at);
        const std::size_t whole = (end == std::string::npos ? text.size() : end + 1) - at;
        lines.push_back(cut(text.substr(at, std::min(whole, kPiece))));
        at += std::min(whole, kPiece);
    }
    return lines;
}

bool isKeyLine(const std::string& line) {
    return !line.empty() && line.front() == '[';
}

std::optional<std::vector<std::string>> namesOfKeyLine(const std::string& line) {
    const std::size_t end = line.find(']');
    if (end == std::string::npos) {
        return std::nullopt;
    }
    std::vector<std::string> names;
    std::string rest = line.substr(1, end - 1);
    while (!rest.empty()) {
        const std::size_t slash = rest.find('/');
        names.push_back(rest.substr(0, slash));
        rest.erase(0, slash == std::string::npos ? slash : slash + 1);
    }
    return names;
}

std::optional<ValueLine> parseValueLine(const std::string& line) {
    const std::size_t begin = line.find('"');
    const std::size_t end = begin == std::string::npos ? begin : line.find('"', begin + 1);
    if (end == std::string::npos || end + 1 == line.size() || line[end + 1] != '=') {
        return std::nullopt;
    }
    const std::size_t colon = line.find(':', end + 2);
    if (colon == std::string::npos) {
        return std::nullopt;
    }
    const std::string type = line.substr(end + 2, colon - end - 2);
    const std::string name = line.substr(begin + 1, end - begin - 1);
    if (type == "binary") {
        return ValueLine{name, VQRegLib::CRegLib::eBinary};
    }
    if (type == "dword") {
        return ValueLine{name, VQRegLib::CRegLib::eDword};
    }
    if (type == "string") {
        return ValueLine{name, VQRegLib::CRegLib::eString};
    }
    return std::nullopt;
}

std::string stringLine(const std::string& name, const std::string& text) {
    return '"' + name + "\"=string:" + text;
}

std::string dwordLine(const std::string& name, unsigned long number) {
    char digits[9];
    std::snprintf(digits, sizeof digits, "%08X", static_cast<unsigned>(number));
    return '"' + name + "\"=dword:" + digits;
}

std::string binaryLine(const std::string& name, const unsigned char* data, unsigned long size) {
    std::string line = '"' + name + "\"=binary:";
    for (unsigned long i = 0; i < size; ++i) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02X", static_cast<unsigned>(data[i]));
        line += digits;
    }
    return line;
}

int readData(const std::string& line, DataType type, unsigned char* buffer, unsigned long& size) {
    if (line.find('=') == std::string::npos) {
        return VQRegLib::REGLIB_E_FAIL;
    }
    // Also where this colon is part of the name.
    const std::size_t colon = line.find(':');
    if (colon == std::string::npos) {
        return VQRegLib::REGLIB_E_BAD_FORMAT;
    }
    if (buffer == nullptr) {
        size = 0;
    }
    const std::string data = line.substr(colon + 1);
    switch (type) {
        case VQRegLib::CRegLib::eDword:
            return readDword(data, buffer, size);
        case VQRegLib::CRegLib::eString:
            return readString(data, buffer, size);
        case VQRegLib::CRegLib::eBinary:
            return readBinary(data, buffer, size);
        default:
            size = 0;
            return VQRegLib::REGLIB_E_BAD_TYPE;
    }
}

std::vector<std::string> namesOfPath(const std::string& path) {
    std::vector<std::string> names(1);
    for (const char byte : path) {
        if (byte == '/' || byte == '\\') {
            names.emplace_back();
        } else {
            names.back() += byte;
        }
    }
    return names;
}

std::string folded(std::string name) {
    for (char& byte : name) {
        if (byte >= 'A' && byte <= 'Z') {
            byte = static_cast<char>(byte - 'A' + 'a');
        }
    }
    return name;
}

}  // namespace vqtorture::model
