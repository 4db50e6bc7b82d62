// What agents and the model store answer, in one form, so that a test can compare the two.
#ifndef VQTEST_RESULTS_H
#define VQTEST_RESULTS_H

#include <cstdint>
#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

namespace vqtest {

/// A queried value: the result code, the `eDataType` and the bytes as the library hands them out
/// (4 bytes of a number, a text with its NUL, the bytes of a binary value).
struct Value {
    int code = 0;
    int type = 0;
    std::string bytes;

    /// @throws std::logic_error when it is no number
    std::uint32_t dword() const;
    /// The text without its NUL. @throws std::logic_error when it is no text
    std::string text() const;

    static Value ofDword(std::uint32_t number);
    static Value ofText(const std::string& text);
    static Value ofBinary(const std::string& bytes);
    static Value failure(int code);

    bool operator==(const Value&) const = default;
};

struct KeyNames {
    int code = 0;
    std::vector<std::string> names;

    bool operator==(const KeyNames&) const = default;
};

struct ValueNames {
    int code = 0;
    std::vector<std::pair<std::string, int>> names;  ///< with the `eDataType`

    bool operator==(const ValueNames&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Value& value);
std::ostream& operator<<(std::ostream& out, const KeyNames& keys);
std::ostream& operator<<(std::ostream& out, const ValueNames& values);

}  // namespace vqtest

#endif  // VQTEST_RESULTS_H
