// Random choices that are the same on every machine and with every build of the library.
#ifndef VQCOMPARE_CHANCE_H
#define VQCOMPARE_CHANCE_H

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <random>
#include <string>

namespace vqcompare {

class Chance {
public:
    explicit Chance(std::uint64_t seed) : m_random(seed) {}

    std::size_t below(std::size_t limit) { return static_cast<std::size_t>(m_random() % limit); }
    bool oneIn(std::size_t number) { return below(number) == 0; }

    template <typename List>
    auto oneOf(const List& list) {
        return list[below(std::size(list))];
    }

    // An index, each as often as its weight says.
    std::size_t weighted(std::initializer_list<unsigned> weights) {
        std::size_t sum = 0;
        for (const unsigned weight : weights) {
            sum += weight;
        }
        std::size_t left = below(sum);
        std::size_t index = 0;
        for (const unsigned weight : weights) {
            if (left < weight) {
                break;
            }
            left -= weight;
            ++index;
        }
        return index;
    }

private:
    std::mt19937_64 m_random;
};

}  // namespace vqcompare

#endif  // VQCOMPARE_CHANCE_H
