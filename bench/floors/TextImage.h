/// The whole text of a store as one block, with the place of each number in it.
#ifndef VQREG_BENCH_TEXT_IMAGE_H
#define VQREG_BENCH_TEXT_IMAGE_H

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "support/ConfigText.h"
#include "support/Data.h"
#include "support/System.h"

namespace bench {

class TextImage {
public:
    explicit TextImage(const Data& data) : m_text(configText(data)), m_digits(data.values()) {
        static constexpr char kMark[] = "=dword:";
        std::size_t at = 0;
        for (std::size_t value = 0; value < data.values(); ++value) {
            if (Data::fieldOf(value).type == Type::eNumber) {
                at = m_text.find(kMark, at) + sizeof kMark - 1;
                m_digits[value] = at;
            }
        }
    }

    const std::string& text() const { return m_text; }

    void set(std::size_t value, std::uint32_t number) {
        static constexpr char kDigits[] = "0123456789ABCDEF";
        char* const digits = &m_text[m_digits[value]];
        for (int i = 0; i < 8; ++i) {
            digits[i] = kDigits[(number >> (28 - 4 * i)) & 15];
        }
    }

    std::uint32_t number(std::size_t value) const {
        const std::string digits = m_text.substr(m_digits[value], 8);
        return static_cast<std::uint32_t>(std::strtoul(digits.c_str(), nullptr, 16));
    }

    // Makes a text that was read the present one; false when it is the same.
    bool exchange(std::string& read) {
        require(read.size() == m_text.size(), "the text has another length");
        if (std::memcmp(read.data(), m_text.data(), m_text.size()) == 0) {
            return false;
        }
        m_text.swap(read);
        return true;
    }

private:
    std::string m_text;
    std::vector<std::size_t> m_digits;
};

}  // namespace bench

#endif  // VQREG_BENCH_TEXT_IMAGE_H
