/// @file
/// A value that has been read: its name, its type and its data. A part of VQRegStore.h.
#ifndef VQREGSTORE_VALUE_H
#define VQREGSTORE_VALUE_H

#include "VQRegStore/Types.h"

namespace vqreg {

/// A value as it was when it was read. It belongs to itself: no later change moves it.
class Value {
public:
    /// @param name  of the value
    /// @param type  of the data
    /// @param data  as a query gives it: 4 bytes of a number, a text with its NUL, or bytes
    /// @param size  of the data
    Value(std::string name, Type type, const void* data, std::size_t size)
        : m_name(std::move(name)),
          m_type(type),
          m_data(static_cast<const unsigned char*>(data),
                 static_cast<const unsigned char*>(data) + size) {}

    /// Its name: as it was created, and where `Key::value` was asked for it as it was asked for.
    const std::string& name() const noexcept { return m_name; }
    /// Its type.
    Type type() const noexcept { return m_type; }

    /// The data as T.
    /// @throws Error  `errc::bad_type` where it has another type, `errc::out_of_range` where T has no room
    template <typename T>
    T as() const {
        std::optional<T> value;
        const int result = read(value);
        if (result != detail::kOk) {
            detail::fail(result, {}, m_name, {});
        }
        return *std::move(value);
    }

    /// The data as T, or nothing, with the reason in `error`.
    template <typename T>
    std::optional<T> as(std::error_code& error) const {
        std::optional<T> value;
        error = detail::codeOf(read(value));
        return value;
    }

    /// Whether type and data are the same.
    bool has_same_data(const Value& other) const noexcept {
        return m_type == other.m_type && m_data == other.m_data;
    }

private:
    template <typename T>
    int read(std::optional<T>& value) const {
        static_assert(detail::kIsReadable<T>, "T is no type that a value can be read as");
        return m_type != static_cast<Type>(detail::kTypeOf<T>) || !isWhole()
                   ? VQREG_E_BAD_TYPE
                   : detail::decode(m_data.data(), m_data.size(), value);
    }

    // A program may have made it of other data than a query gives.
    bool isWhole() const noexcept {
        return m_type == Type::dword    ? m_data.size() == sizeof(std::uint32_t)
               : m_type == Type::string ? !m_data.empty() && m_data.back() == 0
                                        : true;
    }

    std::string m_name;
    Type m_type;
    std::vector<unsigned char> m_data;
};

}  // namespace vqreg

#endif  // VQREGSTORE_VALUE_H
