// Texts of configuration files from anywhere, line by line: whatever they hold, cutting them and
// taking them apart stays within the text and within the buffers of callers, and a line that is what
// would be composed is known as that.
//
// With clang: clang++ -std=c++20 -fsanitize=fuzzer,address,undefined -DVQREG_LIBFUZZER ...
// Without VQREG_LIBFUZZER it is a program that runs through the files it is given.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "RegLib/text/LineFormat.h"
#include "RegLib/text/LineSplitter.h"
#include "RegLib/text/ValueData.h"
#include "fuzz/Support.h"

namespace {

using namespace VQRegLib;
using vqfuzz::require;

std::vector<std::string_view> linesOf(std::string_view text) {
    std::vector<std::string_view> lines;
    std::size_t size = 0;
    for (std::string_view rest = text, piece; takePiece(rest, true, piece); size += piece.size()) {
        lines.push_back(lineOfPiece(piece));
        require(piece.size() <= kLongestPiece && !piece.empty(), "a piece has its limits");
        require(lines.back().find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos,
                "a line is cut at its end");
    }
    require(size == text.size(), "the pieces are the text");
    return lines;
}

// The same from a stream that hands out `step` characters at a time.
void readAsStream(std::string_view text, std::size_t step,
                  const std::vector<std::string_view>& lines) {
    std::size_t begin = 0;
    std::size_t end = 0;
    std::size_t count = 0;
    for (;;) {
        std::string_view rest = text.substr(begin, end - begin);
        std::string_view line;
        if (takeLine(rest, end == text.size(), line)) {
            begin = end - rest.size();
            require(count < lines.size() && line == lines[count], "a stream has the same lines");
            ++count;
        } else if (end == text.size()) {
            break;
        } else {
            end = std::min(text.size(), end + step);
        }
    }
    require(count == lines.size(), "a stream has all the lines");
}

// In a buffer that is exactly as large as told, so that a sanitizer sees every byte beside it.
std::string dataOf(std::string_view line, CRegLib::eDataType type) {
    unsigned long size = 0;
    int result = giveData(line, type, {nullptr, 0, &size});
    require(result == REGLIB_OK || result == REGLIB_E_BUFFER_TOO_SMALL, "a value line has data");
    const auto buffer = std::make_unique<unsigned char[]>(size);
    const unsigned long wanted = size;
    result = giveData(line, type, {buffer.get(), wanted, &size});
    require(result == REGLIB_OK && size == wanted, "the size that was told is enough");
    return {reinterpret_cast<const char*>(buffer.get()), size};
}

void checkComposed(std::string_view line, const CValueLine& parts, const std::string& data) {
    const auto* const bytes = reinterpret_cast<const unsigned char*>(data.data());
    if (parts.type == CRegLib::eDword) {
        std::uint32_t number = 0;
        std::memcpy(&number, data.data(), sizeof number);
        require(
            isDwordLine(line, parts.name, number) == (line == composeDwordLine(parts.name, number)),
            "a number's line is known");
    } else if (parts.type == CRegLib::eString) {
        const std::string_view text(data.data(), data.size() - 1);
        require(
            isStringLine(line, parts.name, text) == (line == composeStringLine(parts.name, text)),
            "a text's line is known");
    } else {
        require(isBinaryLine(line, parts.name, bytes, data.size()) ==
                    (line == composeBinaryLine(parts.name, bytes, data.size())),
                "the line of bytes is known");
    }
}

void readLine(std::string_view line) {
    std::string_view path;
    if (parseKeyLine(line, path) >= 0) {
        for (std::string_view name; nextKeyLineName(path, name);) {
            require(name.find_first_of("/]") == std::string_view::npos, "a key's name is one");
        }
    }
    CValueLine parts;
    if (parseValueLine(line, parts) >= 0) {
        require(typeOfWord(parts.typeWord) == parts.type, "a type has its word");
        checkComposed(line, parts, dataOf(line, parts.type));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const std::vector<std::string_view> lines = linesOf(text);
    readAsStream(text, 1 + size / 7, lines);
    std::for_each(lines.begin(), lines.end(), readLine);
    return 0;
}

#ifndef VQREG_LIBFUZZER

int main(int argc, char** argv) {
    return vqfuzz::runThroughFiles(argc, argv, LLVMFuzzerTestOneInput);
}

#endif
