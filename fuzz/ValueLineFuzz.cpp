// Value lines, both ways. A line from anywhere is taken apart as a plain reader does, and numbers are read
// as the C library's scanf reads them. A line that is composed of a name and data has the size that was
// foretold, and gives both back where the format can hold them.
//
// The input is a byte for the way and the type, then a line, or a name and data with a zero byte between.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "RegLib/text/LineFormat.h"
#include "RegLib/text/ValueData.h"
#include "fuzz/Support.h"

namespace {

using namespace VQRegLib;
using vqfuzz::require;

// The first thing that is missing, in the order in which a line is read.
eLineFault faultOf(const std::string& line, std::string& name, std::string& word) {
    const std::size_t open = line.find('"');
    if (open == std::string::npos) {
        return eLineFault::eNoQuote;
    }
    const std::size_t close = line.find('"', open + 1);
    name = line.substr(open + 1, close - open - 1);
    if (close == std::string::npos) {
        return eLineFault::eNotClosed;
    }
    if (line.compare(close + 1, 1, "=") != 0) {
        return eLineFault::eNoEquals;
    }
    const std::size_t colon = line.find(':', close + 2);
    if (colon == std::string::npos) {
        return eLineFault::eNoColon;
    }
    word = line.substr(close + 2, colon - close - 2);
    return word == "binary" || word == "dword" || word == "string" ? eLineFault::eNone
                                                                   : eLineFault::eNoType;
}

std::uint32_t scanned(const std::string& text, const char* format) {
    unsigned value = 0;
    return std::sscanf(text.c_str(), format, &value) == 1 ? value : 0;
}

// Blanks before a number are no part of its width. "0x" without a digit behind it is the one thing in
// which C libraries differ.
bool isPlainNumber(const std::string& text) {
    const std::size_t x = text.find_first_of("xX");
    return x == std::string::npos || (x + 1 < text.size() && isHexDigit(text[x + 1]));
}

void readLine(const std::string& line) {
    CValueLine parts;
    std::string name;
    std::string word;
    const eLineFault fault = faultOf(line, name, word);
    require(splitValueLine(line, parts) == fault, "a line lacks what it lacks");
    require((parseValueLine(line, parts) >= 0) == (fault == eLineFault::eNone), "and is none then");
    if (fault == eLineFault::eNone || fault == eLineFault::eNoType) {
        require(parts.name == name && parts.typeWord == word, "a line has a name and a type");
    }
    if (line.find('\0') == std::string::npos && isPlainNumber(line)) {
        require(scanHex(line, 8) == scanned(line, "%8X"), "a number is read as scanf does");
        require(scanHex(line, 2) == scanned(line, "%2X"), "a byte is read as scanf does");
    }
}

std::string dataOf(const std::string& line, CRegLib::eDataType type) {
    unsigned long size = 0;
    std::vector<unsigned char> buffer(line.size() + 8);
    size = buffer.size();
    require(giveData(line, type, {buffer.data(), size, &size}) == REGLIB_OK, "a line has data");
    return {reinterpret_cast<const char*>(buffer.data()), size};
}

// Gives back what went in, unless the name has what ends it earlier, or is taken for data.
void checkReturn(const std::string& line, const std::string& name, CRegLib::eDataType type,
                 const std::string& data) {
    require(line.size() == valueLineSize(name.size(), type,
                                         type == CRegLib::eString ? data.size() - 1 : data.size()),
            "a line is as long as foretold");
    if (name.find('"') == std::string::npos) {
        CValueLine parts;
        require(parseValueLine(line, parts) >= 0, "what was composed is a line");
        require(parts.name == name && parts.type == type, "and has its name and type");
    }
    if (name.find(':') == std::string::npos) {
        require(dataOf(line, type) == data, "and its data");
    }
}

void compose(CRegLib::eDataType type, const std::string& name, const std::string& data) {
    if (type == CRegLib::eDword) {
        std::uint32_t number = 0;
        std::memcpy(&number, data.data(), std::min(data.size(), sizeof number));
        std::string bytes(sizeof number, '\0');
        std::memcpy(bytes.data(), &number, sizeof number);
        checkReturn(composeDwordLine(name, number), name, type, bytes);
    } else if (type == CRegLib::eString) {
        checkReturn(composeStringLine(name, data), name, type, data + '\0');
    } else {
        const auto* const bytes = reinterpret_cast<const unsigned char*>(data.data());
        const std::string line = composeBinaryLine(name, bytes, data.size());
        checkReturn(line, name, type, data);
        require(line.ends_with(':' + hexText(data)), "bytes are two digits each");
        require(bytesOfDigits(hexText(data)) == data, "and come back from them");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    if (data[0] % 4 == 0) {
        readLine(text);
        return 0;
    }
    constexpr CRegLib::eDataType kTypes[] = {CRegLib::eBinary, CRegLib::eDword, CRegLib::eString};
    const std::size_t end = std::min(text.find('\0'), text.size());
    compose(kTypes[data[0] % 4 - 1], text.substr(0, end),
            end < text.size() ? text.substr(end + 1) : std::string());
    return 0;
}

#ifndef VQREG_LIBFUZZER

int main(int argc, char** argv) {
    return vqfuzz::runThroughFiles(argc, argv, LLVMFuzzerTestOneInput);
}

#endif
