// Letters in lower case, eight bytes at a time.
#ifndef REGLIB_BASE_FOLDING_H
#define REGLIB_BASE_FOLDING_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace VQRegLib {

template <typename Word>
Word loadWord(const char* at) {
    Word word = 0;
    std::memcpy(&word, at, sizeof word);
    return word;
}

// The bytes from `at` on, fewer than eight of them, and zeroes. Reads some of them twice, none that
// lies outside.
inline std::uint64_t loadTail(const char* at, std::size_t size) {
    static_assert(std::endian::native == std::endian::little);
    if (size >= 4) {
        return loadWord<std::uint32_t>(at) | std::uint64_t{loadWord<std::uint32_t>(at + size - 4)}
                                                 << (8 * (size - 4));
    }
    if (size == 0) {
        return 0;
    }
    // The first, the middle and the last one, which of one or two bytes are the same in part.
    const auto byte = [at](std::size_t of) {
        return std::uint64_t{static_cast<unsigned char>(at[of])} << (8 * of);
    };
    return byte(0) | byte(size / 2) | byte(size - 1);
}

// Adds 0x20 to each byte from A to Z. A sum of seven bits and a constant carries into the eighth bit
// where the byte is at or above a limit, and never into the next byte.
constexpr std::uint64_t foldedWord(std::uint64_t word) {
    constexpr std::uint64_t kOnes = 0x0101010101010101;
    const std::uint64_t low = word & (kOnes * 0x7F);
    const std::uint64_t atLeastA = low + kOnes * (0x80 - 'A');
    const std::uint64_t aboveZ = low + kOnes * (0x7F - 'Z');
    const std::uint64_t isLetter = (atLeastA ^ aboveZ) & ~word & (kOnes * 0x80);
    return word | isLetter >> 2;
}

// A text of at most 16 bytes as two words: its first eight bytes and its last eight, which may be the same
// ones in part. Of fewer than eight bytes both words are in the first one, with zeroes behind them.
struct CTwoWords {
    std::uint64_t first;
    std::uint64_t last;
};
constexpr std::size_t kTwoWords = 16;

inline CTwoWords loadTwoWords(const char* at, std::size_t size) {
    if (size >= 8) {
        return {loadWord<std::uint64_t>(at), loadWord<std::uint64_t>(at + size - 8)};
    }
    return {loadTail(at, size), 0};
}

constexpr CTwoWords folded(const CTwoWords& words) {
    return {foldedWord(words.first), foldedWord(words.last)};
}

// Most names are asked for as they were created.
constexpr bool isSameFolded(const CTwoWords& one, const CTwoWords& other) {
    const auto isSame = [](const CTwoWords& left, const CTwoWords& right) {
        return ((left.first ^ right.first) | (left.last ^ right.last)) == 0;
    };
    return isSame(one, other) || isSame(folded(one), folded(other));
}

// Whether two names are the same once they are folded.
[[nodiscard]] bool isSameName(std::string_view name, std::string_view other);

// The order of names: of their folded bytes, a shorter one before those that begin with it.
// Below 0, 0 or above.
[[nodiscard]] int compareFolded(std::string_view name, std::string_view other);

}  // namespace VQRegLib

#endif  // REGLIB_BASE_FOLDING_H
