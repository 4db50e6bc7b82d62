#include "RegLib/base/Folding.h"

namespace VQRegLib {

bool isSameName(std::string_view name, std::string_view other) {
    if (name.size() != other.size()) {
        return false;
    }
    const char* at = name.data();
    const char* from = other.data();
    std::size_t left = name.size();
    for (; left > kTwoWords; at += kTwoWords, from += kTwoWords, left -= kTwoWords) {
        if (!isSameFolded(loadTwoWords(at, kTwoWords), loadTwoWords(from, kTwoWords))) {
            return false;
        }
    }
    return isSameFolded(loadTwoWords(at, left), loadTwoWords(from, left));
}

int compareFolded(std::string_view name, std::string_view other) {
    const std::size_t common = name.size() < other.size() ? name.size() : other.size();
    std::size_t at = 0;
    while (at + 8 <= common) {
        const std::uint64_t one = foldedWord(loadWord<std::uint64_t>(name.data() + at));
        const std::uint64_t two = foldedWord(loadWord<std::uint64_t>(other.data() + at));
        if (one != two) {
            return __builtin_bswap64(one) < __builtin_bswap64(two) ? -1 : 1;
        }
        at += 8;
    }
    const std::uint64_t one = foldedWord(loadTail(name.data() + at, common - at));
    const std::uint64_t two = foldedWord(loadTail(other.data() + at, common - at));
    if (one != two) {
        return __builtin_bswap64(one) < __builtin_bswap64(two) ? -1 : 1;
    }
    return name.size() == other.size() ? 0 : name.size() < other.size() ? -1 : 1;
}

}  // namespace VQRegLib
