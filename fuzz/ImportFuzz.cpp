// Texts of files from anywhere, as the library imports them: they make the tree that their lines say, or
// are malformed where the plain tree of the tests says so. Read a second time they change nothing; and
// what the library writes of them is, once read, written as the same text, but for lines that do not lead
// to their own key (Trees.h).
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/Trees.h"

using namespace vqfuzz;

namespace {

#ifdef VQREG_LIBFUZZER
constexpr std::size_t kMostLevels = 64;
#else
constexpr std::size_t kMostLevels = 4096;  // more than a line holds
#endif

// Whether its keys are so deep that it takes as long as hundreds of other texts. Those that are kept are
// gone through by the tests.
bool isDeep(std::string_view text) {
    std::size_t levels = 0;
    for (const char byte : text) {
        levels = byte == '\n' ? 0 : levels + (byte == '/' ? 1 : 0);
        if (levels > kMostLevels) {
            return true;
        }
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    if (isDeep(text)) {
        return 0;
    }
    VQRegLib::CTree tree;
    PlainTree plain;
    const bool isWellFormed = readInto(tree, plain, text);
    requireSame(tree, plain);

    VQRegLib::CTree growing;
    vqtest::TextOf source{std::string(text)};
    source.tellSize(size - std::min<std::size_t>(size, 16));
    require((VQRegLib::mergeText(growing, source).code == VQRegLib::REGLIB_E_END_OF_FILE) ==
                isWellFormed,
            "a file that grows is read to its end");
    require(vqtest::dumpOf(growing) == vqtest::dumpOf(tree), "and makes the same tree");

    require(readInto(tree, plain, text) == isWellFormed, "a text stays what it is");
    requireSame(tree, plain);
    checkExport(tree, plain);
    return 0;
}

#ifndef VQREG_LIBFUZZER

int main(int argc, char** argv) {
    return vqfuzz::runThroughFiles(argc, argv, LLVMFuzzerTestOneInput);
}

#endif
