// The data in a value's line, put into a caller's buffer.
#ifndef REGLIB_TEXT_VALUEDATA_H
#define REGLIB_TEXT_VALUEDATA_H

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "VQRegLib.h"

namespace VQRegLib {

// The caller's buffer with its protocol: capacity in, size of the data out.
struct CDataBuffer {
    unsigned char* data;
    unsigned long capacity;
    unsigned long* size;

    [[nodiscard]] int needs(unsigned long wanted) const {
        *size = wanted;
        return capacity < wanted ? REGLIB_E_BUFFER_TOO_SMALL : REGLIB_OK;
    }
};

// All of these answer REGLIB_E_BUFFER_TOO_SMALL, with the size that it takes, and touch no data
// when it does not fit; without a place for the data they tell the size alone.
[[nodiscard]] inline int giveNumber(std::uint32_t number, const CDataBuffer& buffer) {
    const int result = buffer.needs(sizeof number);
    if (result >= 0 && buffer.data) {
        std::memcpy(buffer.data, &number, sizeof number);
    }
    return result;
}

// With the NUL that ends it, which counts.
[[nodiscard]] int giveText(std::string_view text, const CDataBuffer& buffer);

// The bytes of a text of digits. The last digit of an odd number of them counts as a byte where the
// buffer has room, but not in the size.
[[nodiscard]] int giveBytes(std::string_view digits, const CDataBuffer& buffer);

// The same as a text of its own, without that last digit.
std::string bytesOfDigits(std::string_view digits);

// The data of a whole line, read as the type says. REGLIB_E_FAIL and REGLIB_E_BAD_FORMAT for a line
// without data (dataOfLine), REGLIB_E_BAD_TYPE for a type that values do not have.
[[nodiscard]] int giveData(std::string_view line, CRegLib::eDataType type,
                           const CDataBuffer& buffer);

// The same of what stands behind the type.
[[nodiscard]] int giveDataText(std::string_view text, CRegLib::eDataType type,
                               const CDataBuffer& buffer);

}  // namespace VQRegLib

#endif  // REGLIB_TEXT_VALUEDATA_H
