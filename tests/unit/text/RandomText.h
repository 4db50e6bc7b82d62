// Short texts that are drawn at random.
#ifndef VQTEST_TEXT_RANDOM_TEXT_H
#define VQTEST_TEXT_RANDOM_TEXT_H

#include <cstddef>
#include <random>
#include <string>
#include <string_view>

namespace vqtest {

inline std::string randomText(std::mt19937& random, std::string_view letters, std::size_t longest) {
    std::string text(random() % (longest + 1), ' ');
    for (char& letter : text) {
        letter = letters[random() % letters.size()];
    }
    return text;
}

}  // namespace vqtest

#endif  // VQTEST_TEXT_RANDOM_TEXT_H
