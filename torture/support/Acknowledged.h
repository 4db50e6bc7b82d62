// Who has been told that he wrote a number, for numbers that are counted up without an end: the last of
// them are known, as many as a ring has room for.
#ifndef VQTORTURE_ACKNOWLEDGED_H
#define VQTORTURE_ACKNOWLEDGED_H

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace vqtorture {

constexpr std::uint32_t kNumbersKnown = 1u << 23;

/// All zeroes is nobody; lives in memory that processes share.
class Acknowledged {
public:
    /// @return false when somebody was told of the number before
    bool add(std::uint32_t number) {
        const std::uint64_t turn = number / kNumbersKnown;
        const std::uint64_t bit = std::uint64_t{1} << number % kNumbersInWord;
        std::atomic<std::uint64_t>& word = m_words[number % kNumbersKnown / kNumbersInWord];
        std::uint64_t before = word;
        std::uint64_t known = 0;
        do {
            const std::uint64_t turnOfWord = before >> kNumbersInWord;
            if (turnOfWord > turn) {
                return true;  // who was stopped for so long that nobody knows any more
            }
            known = turnOfWord == turn ? before : turn << kNumbersInWord;
            if ((known & bit) != 0) {
                return false;
            }
        } while (!word.compare_exchange_weak(before, known | bit));
        return true;
    }

private:
    // A word has the turn of the ring in its upper half, and a bit for each number in the other one.
    static constexpr std::size_t kNumbersInWord = 32;
    std::array<std::atomic<std::uint64_t>, kNumbersKnown / kNumbersInWord> m_words;
};

}  // namespace vqtorture

#endif  // VQTORTURE_ACKNOWLEDGED_H
