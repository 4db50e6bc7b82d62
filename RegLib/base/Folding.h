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
    if (size >= 2) {
        return loadWord<std::uint16_t>(at) | std::uint64_t{loadWord<std::uint16_t>(at + size - 2)}
                                                 << (8 * (size - 2));
    }
    return size == 1 ? static_cast<unsigned char>(*at) : 0;
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

// The last word of a text that is no multiple of eight bytes long, of which `left` bytes are left at
// `at`: where the text is long enough, some bytes before them are in it again, which takes one load.
inline std::uint64_t loadLast(const char* at, std::size_t left, std::size_t size) {
    return size >= 8 ? loadWord<std::uint64_t>(at + left - 8) : loadTail(at, left);
}

// Calls `use` with the words of a text, folded, one after the other. The last one may begin with bytes that
// the one before it has ended with.
template <typename Use>
[[gnu::always_inline]] inline void forEachFoldedWord(std::string_view text, Use&& use) {
    const std::size_t size = text.size();
    std::size_t at = 0;
    for (; size - at >= 8; at += 8) {
        use(foldedWord(loadWord<std::uint64_t>(text.data() + at)));
    }
    if (at < size) {
        use(foldedWord(loadLast(text.data() + at, size - at, size)));
    }
}

// Most names are asked for as they were created.
inline bool isSameWord(std::uint64_t one, std::uint64_t other) {
    return one == other || foldedWord(one) == foldedWord(other);
}

// Whether two names are the same once they are folded.
inline bool isSameName(std::string_view name, std::string_view other) {
    if (name.size() != other.size()) {
        return false;
    }
    const char* at = name.data();
    const char* from = other.data();
    std::size_t left = name.size();
    for (; left >= 8; at += 8, from += 8, left -= 8) {
        if (!isSameWord(loadWord<std::uint64_t>(at), loadWord<std::uint64_t>(from))) {
            return false;
        }
    }
    return left == 0 ||
           isSameWord(loadLast(at, left, name.size()), loadLast(from, left, name.size()));
}

// The order of names: of their folded bytes, a shorter one before those that begin with it.
// Below 0, 0 or above.
[[nodiscard]] int compareFolded(std::string_view name, std::string_view other);

}  // namespace VQRegLib

#endif  // REGLIB_BASE_FOLDING_H
