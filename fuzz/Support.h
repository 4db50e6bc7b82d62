// What the fuzz targets share.
#ifndef FUZZ_SUPPORT_H
#define FUZZ_SUPPORT_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

namespace vqfuzz {

inline void require(bool condition, const char* what) {
    if (!condition) {
        std::fprintf(stderr, "broken: %s\n", what);
        std::abort();
    }
}

// The main function of a target that is no fuzzer: runs it once for each file that is named.
inline int runThroughFiles(int argc, char** argv, int (*run)(const std::uint8_t*, std::size_t)) {
    for (int i = 1; i < argc; ++i) {
        std::ifstream in(argv[i], std::ios::binary);
        require(in.is_open(), argv[i]);
        const std::string text((std::istreambuf_iterator<char>(in)),
                               std::istreambuf_iterator<char>());
        run(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    }
    std::printf("%d files\n", argc - 1);
    return argc > 1 ? 0 : 2;
}

}  // namespace vqfuzz

#endif  // FUZZ_SUPPORT_H
