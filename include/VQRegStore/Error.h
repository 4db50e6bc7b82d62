/// @file
/// What can go wrong in a store, as codes, as texts and as an exception. A part of VQRegStore.h.
#ifndef VQREGSTORE_ERROR_H
#define VQREGSTORE_ERROR_H

#include <vqreg.h>

#include <memory>
#include <string>
#include <system_error>
#include <type_traits>
#include <utility>

namespace vqreg {

/// What has failed. The numbers are the result codes of `VQRegLib.h` and `vqreg.h`, but for the last one,
/// which those do not need. Converts to `std::error_code`.
enum class errc : int {
    fail = VQREG_E_FAIL,                ///< memory is short, or the system has none of something
    not_found = VQREG_E_NOT_FOUND,      ///< no value of that name
    not_a_key = VQREG_E_NOT_A_KEY,      ///< a name of the path is a value's
    not_a_value = VQREG_E_NOT_A_VALUE,  ///< the name is a sub key's
    key_not_found = VQREG_E_KEY_NOT_FOUND,  ///< no key of that path
    bad_type = VQREG_E_BAD_TYPE,            ///< the value has another type
    bad_format = VQREG_E_BAD_FORMAT,        ///< the file has a malformed line
    invalid_handle =
        VQREG_E_INVALID_HANDLE,  ///< this process has deleted the key, or it is an empty `Key`
    key_not_empty = VQREG_E_KEY_NOT_EMPTY,      ///< the key has sub keys or values
    file_open = VQREG_E_FILE_OPEN,              ///< the file cannot be read, or not be replaced
    not_initialized = VQREG_E_NOT_INITIALIZED,  ///< there is no store
    not_storable = VQREG_E_NOT_STORABLE,  ///< the file could not give back the name or the data
    out_of_range = 1  ///< a number that the other side has no room for, or no name of an enumerator
};

/// A sentence for a result code, in English, without a full stop.
inline std::string error_message(int code) {
    return code == static_cast<int>(errc::out_of_range) ? "the value is out of range"
                                                        : ::vqreg_strerror(code);
}
/// The same for an enumerator.
inline std::string error_message(errc code) {
    return error_message(static_cast<int>(code));
}

namespace detail {

class VQREG_EXPORT Category final : public std::error_category {
public:
    const char* name() const noexcept override { return "VQRegLib"; }
    std::string message(int code) const override { return error_message(code); }
    std::error_condition default_error_condition(int code) const noexcept override {
        switch (static_cast<errc>(code)) {
            case errc::out_of_range:
                return std::errc::result_out_of_range;
            case errc::not_storable:
                return std::errc::invalid_argument;
            default:
                return {code, *this};
        }
    }
};

}  // namespace detail

/// The category of the codes. `errc::out_of_range` compares equal to `std::errc::result_out_of_range`, and
/// `errc::not_storable` to `std::errc::invalid_argument`.
VQREG_EXPORT inline const std::error_category& error_category() noexcept {
    static const detail::Category category;
    return category;
}

/// Makes a `std::error_code` of an enumerator.
inline std::error_code make_error_code(errc code) noexcept {
    return {static_cast<int>(code), error_category()};
}

/// Thrown by everything that fails and was given no `std::error_code&`.
class VQREG_EXPORT Error : public std::system_error {
public:
    /// @param code  what has failed
    /// @param text  the whole sentence for people
    /// @param path  of the key, below the store's root key
    /// @param name  of the value
    Error(errc code, std::string text, std::string path, std::string name)
        : std::system_error(make_error_code(code)),
          m_texts(std::make_shared<const Texts>(
              Texts{std::move(text), std::move(path), std::move(name)})) {}

    /// The whole sentence: where it was, what it was and, where the store itself is at fault, why. The same
    /// as `text`.
    const char* what() const noexcept override { return m_texts->text.c_str(); }
    /// The whole sentence.
    const std::string& text() const noexcept { return m_texts->text; }
    /// The path of the key; empty for the root key and for what concerns the whole store.
    const std::string& path() const noexcept { return m_texts->path; }
    /// The name of the value; empty where it is about a key.
    const std::string& name() const noexcept { return m_texts->name; }

private:
    struct Texts {
        std::string text;
        std::string path;
        std::string name;
    };
    std::shared_ptr<const Texts> m_texts;  // copies of an exception must not throw
};

namespace detail {

inline std::error_code codeOf(int result) noexcept {
    return {result, error_category()};
}

// Asks one of the functions that tell a sentence for it, whatever its length.
template <typename Tell>
std::string sentenceOf(Tell tell) {
    std::string text(256, '\0');
    for (;;) {
        const std::size_t length = tell(&text[0], text.size() + 1);
        const bool isWhole = length <= text.size();
        text.resize(length);
        if (isWhole) {
            return text;
        }
    }
}

inline std::string whyOf(const char* file) {
    return sentenceOf(
        [file](char* text, std::size_t size) { return ::vqreg_why(file, text, size); });
}

// "Network/Ports "Http": the value has another type", with the reason where there is more to tell.
[[noreturn]] inline void fail(int code, const std::string& path, const std::string& name,
                              const std::string& reason) {
    std::string text = path;
    if (!name.empty()) {
        text += (path.empty() ? "\"" : " \"") + name + '"';
    }
    text += (text.empty() ? "" : ": ") + error_message(code);
    text += (reason.empty() ? "" : ": ") + reason;
    throw Error(static_cast<errc>(code), std::move(text), path, name);
}

// Whether the reason is in the store's file or around it.
inline bool isOfStore(int code) noexcept {
    return code == VQREG_E_BAD_FORMAT || code == VQREG_E_FILE_OPEN ||
           code == VQREG_E_NOT_INITIALIZED;
}

}  // namespace detail

}  // namespace vqreg

/// @cond  the standard library asks for it
template <>
struct std::is_error_code_enum<vqreg::errc> : std::true_type {};
/// @endcond

#endif  // VQREGSTORE_ERROR_H
