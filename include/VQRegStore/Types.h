/// @file
/// What C++ types become in a store, and back. A part of VQRegStore.h.
///
/// | C++ | in the store |
/// |---|---|
/// | `bool` | a number, 0 or 1 |
/// | integers of any width, not the character types | a number; what does not fit is `errc::out_of_range` |
/// | `std::string`; `const char*` and `std::string_view` when setting | a text |
/// | `std::vector<std::byte>`, `std::vector<unsigned char>`; any contiguous range of them when setting | bytes |
/// | enumerations with `EnumTraits` | a text or a number |
#ifndef VQREGSTORE_TYPES_H
#define VQREGSTORE_TYPES_H

#include <VQRegLib.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "VQRegStore/Error.h"

namespace vqreg {

/// The type of a value in the store.
enum class Type : int {
    none = VQREG_NONE,      ///< there is no value
    binary = VQREG_BINARY,  ///< bytes
    dword = VQREG_DWORD,    ///< an unsigned 32-bit number
    string = VQREG_STRING   ///< a text
};

/// Bytes of a value.
using Bytes = std::vector<std::byte>;

/// A name or a path as an argument: a NUL-terminated text, which must outlive the call. There is no way
/// from a `std::string_view`, which has no NUL behind it: make a `std::string` of it. A text that holds a
/// NUL itself is no name: what gets one fails with `errc::not_storable`.
class Name {
public:
    /// @param text  null counts as an empty path, and as a failure where a value's name is needed
    Name(const char* text) noexcept : m_text(text) {}
    /// @param text  must outlive the call
    Name(const std::string& text) noexcept
        : m_text(text.find('\0') == std::string::npos ? text.c_str() : nullptr),
          m_isWhole(m_text != nullptr) {}

    /// The text; null when it was, and when it holds a NUL.
    const char* c_str() const noexcept { return m_text; }
    /// Whether it holds no NUL.
    bool is_whole() const noexcept { return m_isWhole; }

private:
    const char* m_text;
    bool m_isWhole = true;
};

/// How an enumeration is stored. Specialise it, in the namespace `vqreg`, with one of
///
///     static constexpr EnumName<Level> names[] = {{Level::low, "low"}, {Level::high, "high"}};
///
/// which stores texts, found again as they are spelled there, or
///
///     static constexpr Level first = Level::low;
///     static constexpr Level last = Level::high;
///
/// which stores numbers from the first to the last one. Anything else, in the store or when setting, is
/// `errc::out_of_range`.
template <typename E>
struct EnumTraits;

/// An enumerator and its text.
template <typename E>
struct EnumName {
    E value;           ///< the enumerator
    const char* name;  ///< its text in the store
};

namespace detail {

constexpr int kOk = VQREG_OK;
constexpr int kOutOfRange = static_cast<int>(errc::out_of_range);

template <typename T>
constexpr bool kIsCharacter = std::is_same_v<T, char> || std::is_same_v<T, wchar_t> ||
                              std::is_same_v<T, char16_t> || std::is_same_v<T, char32_t>
#ifdef __cpp_char8_t
                              || std::is_same_v<T, char8_t>
#endif
    ;

// With bool. GNU dialects of C++ have wider integers, which no limit is known of here.
template <typename T>
constexpr bool kIsNumber =
    std::is_integral_v<T> && !kIsCharacter<T> && sizeof(T) <= sizeof(std::uintmax_t);

template <typename T, typename = void>
constexpr bool kHasNames = false;
template <typename T>
constexpr bool kHasNames<T, std::void_t<decltype(EnumTraits<T>::names)>> = true;

template <typename T, typename = void>
constexpr bool kHasRange = false;
template <typename T>
constexpr bool
    kHasRange<T, std::void_t<decltype(EnumTraits<T>::first), decltype(EnumTraits<T>::last)>> = true;

// Whether it is clear if an enumeration is a text or a number.
template <typename T>
constexpr bool kIsClear = !(kHasNames<T> && kHasRange<T>);

template <typename T>
constexpr bool kIsByte = std::is_same_v<T, std::byte> || std::is_same_v<T, unsigned char>;

// Whether std::data and std::size give bytes.
template <typename T, typename = void>
constexpr bool kIsByteRange = false;
template <typename T>
constexpr bool kIsByteRange<T, std::void_t<decltype(std::data(std::declval<const T&>())),
                                           decltype(std::size(std::declval<const T&>()))>> =
    kIsByte<std::remove_cv_t<std::remove_pointer_t<decltype(std::data(std::declval<const T&>()))>>>;

template <typename T>
constexpr bool kIsByteVector =
    std::is_same_v<T, std::vector<std::byte>> || std::is_same_v<T, std::vector<unsigned char>>;

template <typename T>
constexpr bool kIsReadable = kIsClear<T> && (kIsNumber<T> || kHasNames<T> || kHasRange<T> ||
                                             std::is_same_v<T, std::string> || kIsByteVector<T>);

// What a fallback or a value that is set becomes when it is read.
template <typename T>
using Stored = std::conditional_t<std::is_convertible_v<const T&, std::string_view>, std::string,
                                  std::decay_t<T>>;

template <typename T>
constexpr VQRegLib::CRegLib::eDataType kTypeOf =
    kIsNumber<T> || kHasRange<T>                     ? VQRegLib::CRegLib::eDword
    : std::is_same_v<T, std::string> || kHasNames<T> ? VQRegLib::CRegLib::eString
                                                     : VQRegLib::CRegLib::eBinary;

// Numbers of the store to numbers of the program.
template <typename T>
int decodeNumber(std::uint32_t number, std::optional<T>& value) {
    if constexpr (kHasRange<T>) {
        std::optional<std::underlying_type_t<T>> plain;
        const int result = detail::decodeNumber(number, plain);
        if (result != kOk || static_cast<T>(*plain) < EnumTraits<T>::first ||
            static_cast<T>(*plain) > EnumTraits<T>::last) {
            return kOutOfRange;
        }
        value = static_cast<T>(*plain);
    } else {
        // The casts do nothing for types that are as wide.
        constexpr auto kLargest = static_cast<std::uintmax_t>(std::numeric_limits<T>::max());
        if (number > kLargest) {
            return kOutOfRange;
        }
        value = static_cast<T>(number);
    }
    return kOk;
}

template <typename E>
int decodeEnumName(std::string_view text, std::optional<E>& value) {
    for (const EnumName<E>& each : EnumTraits<E>::names) {
        if (text == each.name) {
            value = each.value;
            return kOk;
        }
    }
    return kOutOfRange;
}

// Calls of the functions here name their namespace: a program may have such functions for its own types.
//
// The data of a value of the type that T wants, as a query gives them: texts with their NUL.
template <typename T>
int decode(const unsigned char* data, std::size_t size, std::optional<T>& value) {
    if constexpr (kTypeOf<T> == VQRegLib::CRegLib::eDword) {
        std::uint32_t number = 0;
        std::memcpy(&number, data, sizeof number);
        return detail::decodeNumber(number, value);
    } else if constexpr (kTypeOf<T> == VQRegLib::CRegLib::eString) {
        const auto* const text = reinterpret_cast<const char*>(data);
        if constexpr (kHasNames<T>) {
            return detail::decodeEnumName(std::string_view(text, size - 1), value);
        } else {
            value.emplace(text, size - 1);
        }
    } else {
        using Byte = typename T::value_type;
        const auto* const bytes = reinterpret_cast<const Byte*>(data);
        value.emplace(bytes, bytes + size);
    }
    return kOk;
}

// A value on its way into the store. Texts have a NUL behind them.
struct Encoded {
    Type type = Type::none;
    std::uint32_t number = 0;
    const void* data = nullptr;
    std::size_t size = 0;
    std::string own;  // where the caller's text has no NUL
};

template <typename T>
int encodeNumber(T number, Encoded& encoded) {
    if constexpr (std::is_enum_v<T>) {
        if (number < EnumTraits<T>::first || number > EnumTraits<T>::last) {
            return kOutOfRange;
        }
        return detail::encodeNumber(static_cast<std::underlying_type_t<T>>(number), encoded);
    } else {
        // A negative number is a large one there.
        if (static_cast<std::uintmax_t>(number) > std::numeric_limits<std::uint32_t>::max()) {
            return kOutOfRange;
        }
        encoded.type = Type::dword;
        encoded.number = static_cast<std::uint32_t>(number);
        encoded.data = &encoded.number;
        encoded.size = sizeof encoded.number;
        return kOk;
    }
}

inline int encodeText(const char* text, std::size_t size, Encoded& encoded) noexcept {
    encoded.type = Type::string;
    encoded.data = text;
    encoded.size = size;
    return text ? kOk : VQREG_E_FAIL;
}

template <typename E>
int encodeEnumName(E value, Encoded& encoded) {
    for (const EnumName<E>& each : EnumTraits<E>::names) {
        if (each.value == value) {
            return detail::encodeText(each.name, std::strlen(each.name), encoded);
        }
    }
    return kOutOfRange;
}

// Refers to the value, which must outlive what is made of it.
template <typename T>
int encode(const T& value, Encoded& encoded) {
    static_assert(kIsClear<T>, "vqreg::EnumTraits of T has names or first and last, not both");
    if constexpr (kHasNames<T>) {
        return detail::encodeEnumName(value, encoded);
    } else if constexpr (kIsNumber<T> || kHasRange<T>) {
        return detail::encodeNumber(value, encoded);
    } else if constexpr (std::is_same_v<T, std::string>) {
        return detail::encodeText(value.c_str(), value.size(), encoded);
    } else if constexpr (std::is_convertible_v<const T&, const char*>) {
        const char* const text = value;
        return detail::encodeText(text, text ? std::strlen(text) : 0, encoded);
    } else if constexpr (std::is_convertible_v<const T&, std::string_view>) {
        encoded.own = std::string_view(value);
        return detail::encodeText(encoded.own.c_str(), encoded.own.size(), encoded);
    } else {
        static_assert(
            kIsByteRange<T>,
            "a store has integers, bool, texts, bytes, and enumerations with vqreg::EnumTraits");
        encoded.type = Type::binary;
        encoded.data = std::data(value);
        encoded.size = std::size(value);
        return kOk;
    }
}

}  // namespace detail

}  // namespace vqreg

#endif  // VQREGSTORE_TYPES_H
