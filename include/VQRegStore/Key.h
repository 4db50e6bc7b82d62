/// @file
/// A key of a store, and the values in it. A part of VQRegStore.h.
#ifndef VQREGSTORE_KEY_H
#define VQREGSTORE_KEY_H

#include "VQRegStore/Core.h"

namespace vqreg {

/// An open key. It keeps its store open; it may be moved, not copied, and several threads may use it at
/// once (not move it). `Store::key` and `Store::create` make one.
///
/// Each operation throws `Error`, and does not where it is given a `std::error_code&`, which it sets, or
/// clears. Nothing but `std::bad_alloc` leaves those.
///
/// When this process deletes the key, or it is empty, every operation fails with `errc::invalid_handle`.
/// What another process deletes stays in this one's memory, as docs/sharing.md tells. Where another process
/// makes the key, or one above it, a value, all fail in this way but `get` and `value`, which then give what
/// the memory still has.
class Key {
public:
    /// An empty one.
    Key() noexcept = default;
    /// Leaves the other one empty.
    Key(Key&&) noexcept = default;
    /// Leaves the other one empty.
    Key& operator=(Key&& other) noexcept {
        Key taken(std::move(other));
        m_core.swap(taken.m_core);  // what this one held goes in the order of a destructor
        m_key.swap(taken.m_key);
        return *this;
    }

    /// Whether it is not empty.
    explicit operator bool() const noexcept { return m_key != nullptr; }
    /// The path below the store's root key, as it was given; empty for the root key and an empty one.
    std::string path() const { return m_key ? m_key->path : std::string(); }
    /// The last name of the path.
    std::string name() const {
        const std::string whole = path();
        const std::size_t separator = whole.find_last_of("/\\");
        return separator == std::string::npos ? whole : whole.substr(separator + 1);
    }

    /// @name Reading values
    /// @{

    /// The value of that name. See Types.h for what T may be.
    /// @return nothing when there is no such value
    /// @throws Error  `errc::bad_type`, `errc::out_of_range`, `errc::not_a_value`, `errc::bad_format`,
    ///                `errc::file_open`
    template <typename T>
    std::optional<T> get(Name name) const {
        std::optional<T> value;
        const int result = read(name, value);
        if (result != detail::kOk && result != VQREG_E_NOT_FOUND) {
            detail::failAt(detail::refused(result, name), m_core.get(), path(), name, nullptr);
        }
        return value;
    }

    /// The same without an exception. Nothing is returned, and the code is 0, when there is no such value.
    template <typename T>
    std::optional<T> get(Name name, std::error_code& error) const {
        std::optional<T> value;
        const int result = read(name, value);
        setError(error, result == VQREG_E_NOT_FOUND ? detail::kOk : detail::refused(result, name));
        return value;
    }

    /// The value of that name, or the fallback where there is none. Its type is that of the fallback; texts
    /// come as `std::string`. A value of another type is a failure, as for `get`: who took it for a missing
    /// one would lose a setting. So is a null pointer as a text where it is needed, with `errc::fail`.
    template <typename T>
    detail::Stored<T> get_or(Name name, const T& fallback) const {
        std::optional<detail::Stored<T>> value = get<detail::Stored<T>>(name);
        if (!value && isNull(fallback)) {
            detail::failAt(VQREG_E_FAIL, m_core.get(), path(), name, nullptr);
        }
        return value ? *std::move(value) : detail::Stored<T>(fallback);
    }

    /// The same without an exception: the fallback also stands for what could not be read. For a null
    /// pointer an empty text does.
    template <typename T>
    detail::Stored<T> get_or(Name name, const T& fallback, std::error_code& error) const {
        std::optional<detail::Stored<T>> value = get<detail::Stored<T>>(name, error);
        if (!value && isNull(fallback)) {
            setError(error, error ? error.value() : VQREG_E_FAIL);
            return {};
        }
        return value ? *std::move(value) : detail::Stored<T>(fallback);
    }

    /// The value of that name, whatever its type.
    std::optional<Value> value(Name name) const {
        std::error_code error;
        std::optional<Value> found = value(name, error);
        throwFor(error, name);
        return found;
    }
    /// The same without an exception.
    std::optional<Value> value(Name name, std::error_code& error) const {
        std::optional<Value> found;
        const int result =
            m_key ? detail::queryAny(m_core->session(), *m_key->handle, name.c_str(), found)
                  : VQREG_E_INVALID_HANDLE;
        setError(error, result == VQREG_E_NOT_FOUND ? detail::kOk : detail::refused(result, name));
        return found;
    }

    /// All values, in the order of their lower-case names. They are read one after the other: one that
    /// another thread or process changes meanwhile may be there as it was or as it is.
    std::vector<Value> values() const {
        std::error_code error;
        std::vector<Value> found = values(error);
        throwFor(error, "");
        return found;
    }
    /// The same without an exception.
    std::vector<Value> values(std::error_code& error) const {
        std::vector<Value> found;
        const auto visit = [](void* context, const char* name, vqreg_type type, const void* data,
                              std::size_t size) {
            static_cast<std::vector<Value>*>(context)->emplace_back(name, static_cast<Type>(type),
                                                                    data, size);
            return detail::kOk;
        };
        setError(error, m_key ? ::vqreg_key_visit_values(m_key->checked.get(), visit, &found)
                              : VQREG_E_INVALID_HANDLE);
        return found;
    }
    /// @}

    /// @name Changing values
    /// Each change is in the file when the call returns. Several that belong together are an `Update`.
    /// @{

    /// Sets a value, whatever type it had; see Types.h for what T may be. The file is written only when
    /// the value changes.
    /// @throws Error  `errc::not_storable` for what the file could not give back, and `errc::out_of_range`,
    ///                before anything is changed; `errc::not_a_value`; `errc::file_open` when the file cannot
    ///                be replaced: the change stays in this process's memory then, and goes out with the next
    ///                one that succeeds. The same again finds nothing to change and succeeds without writing;
    ///                what writes for certain is an update, which may be empty: `store.exclusively([] {})`
    template <typename T>
    void set(Name name, const T& value) {
        detail::Encoded encoded;
        const int result = write(name, value, encoded);
        if (result != detail::kOk) {
            detail::failAt(detail::refused(result, name), m_core.get(), path(), name, &encoded);
        }
    }

    /// The same without an exception.
    template <typename T>
    void set(Name name, const T& value, std::error_code& error) {
        detail::Encoded encoded;
        const int result = write(name, value, encoded);
        setError(error, result == detail::kOk ? detail::kOk : detail::refused(result, name));
    }

    /// Deletes a value.
    /// @return false when there was none
    /// @throws Error  `errc::not_a_value`; `errc::file_open` as for `set`: the same again finds no value
    bool erase(Name name) {
        std::error_code error;
        const bool wasThere = erase(name, error);
        throwFor(error, name);
        return wasThere;
    }
    /// The same without an exception.
    bool erase(Name name, std::error_code& error) {
        const int result = m_key ? ::vqreg_key_delete_value(m_key->checked.get(), name.c_str())
                                 : VQREG_E_INVALID_HANDLE;
        setError(error, result >= 0 || result == VQREG_E_NOT_FOUND ? detail::kOk
                                                                   : detail::refused(result, name));
        return result >= 0;
    }
    /// @}

    /// @name Sub keys
    /// @{

    /// Opens a key below this one; as `Store::key`.
    Key key(Name name) const { return below(name, false); }
    /// The same without an exception.
    Key key(Name name, std::error_code& error) const { return below(name, false, error); }
    /// Opens or makes a key below this one; as `Store::create`.
    Key create(Name name) const { return below(name, true); }
    /// The same without an exception.
    Key create(Name name, std::error_code& error) const { return below(name, true, error); }
    /// Opens a key below this one; as `Store::find`.
    std::optional<Key> find(Name name) const {
        std::error_code error;
        std::optional<Key> found = find(name, error);
        throwBelow(error, name);
        return found;
    }
    /// The same without an exception.
    std::optional<Key> find(Name name, std::error_code& error) const {
        return unlessMissing(key(name, error), error);
    }

    /// All sub keys, open, in the order of their lower-case names.
    std::vector<Key> keys() const {
        std::error_code error;
        std::vector<Key> found = keys(error);
        throwFor(error, "");
        return found;
    }
    /// The same without an exception.
    std::vector<Key> keys(std::error_code& error) const {
        std::vector<Key> found;
        for (const std::string& each : key_names(error)) {
            const std::string whole = detail::joined(path(), each);
            // Directly below the root key a key without a name has no path.
            std::optional<Key> key;
            if (whole != path()) {
                key = unlessMissing(opened(m_core, whole, false, error), error);
            }
            if (key) {
                found.push_back(*std::move(key));
            } else if (error) {
                return found;
            }
        }
        return found;
    }

    /// The names of all sub keys, in the order of their lower-case forms.
    std::vector<std::string> key_names() const {
        std::error_code error;
        std::vector<std::string> names = key_names(error);
        throwFor(error, "");
        return names;
    }
    /// The same without an exception.
    std::vector<std::string> key_names(std::error_code& error) const {
        std::vector<std::string> names;
        const auto visit = [](void* context, const char* name) {
            static_cast<std::vector<std::string>*>(context)->emplace_back(name);
            return detail::kOk;
        };
        setError(error, m_key ? ::vqreg_key_visit_keys(m_key->checked.get(), visit, &names)
                              : VQREG_E_INVALID_HANDLE);
        return names;
    }
    /// @}

private:
    friend class Store;
    friend class Update;

    Key(detail::SharedCore core, detail::SharedKey key)
        : m_core(std::move(core)), m_key(std::move(key)) {}

    // The key of a path below the root key.
    static Key opened(const detail::SharedCore& core, const std::string& path, bool create,
                      std::error_code& error) {
        detail::SharedKey key;
        const int result = core->open(path, create, key);
        setError(error, result);
        return result < 0 ? Key() : Key(core, std::move(key));
    }

    static std::optional<Key> unlessMissing(Key found, std::error_code& error) {
        if (error == errc::key_not_found) {
            error.clear();
        }
        return found ? std::optional<Key>(std::move(found)) : std::nullopt;
    }

    std::string pathBelow(Name name) const { return detail::joined(path(), detail::pathOf(name)); }

    // Nothing is opened, or made again, below a key that is gone.
    Key below(Name name, bool create, std::error_code& error) const {
        const int result = !m_key             ? VQREG_E_INVALID_HANDLE
                           : !name.is_whole() ? VQREG_E_NOT_STORABLE
                                              : detail::Core::lookAt(*m_key);
        setError(error, result);
        return result < 0 ? Key() : opened(m_core, pathBelow(name), create, error);
    }

    Key below(Name name, bool create) const {
        std::error_code error;
        Key found = below(name, create, error);
        throwBelow(error, name);
        return found;
    }

    template <typename T>
    int read(Name name, std::optional<T>& value) const {
        static_assert(detail::kIsReadable<T>, "T is no type that a value can be read as");
        return m_key ? detail::query(m_core->session(), *m_key->handle, name.c_str(), value)
                     : VQREG_E_INVALID_HANDLE;
    }

    template <typename T>
    int write(Name name, const T& value, detail::Encoded& encoded) {
        const int result = m_key ? detail::encode(value, encoded) : VQREG_E_INVALID_HANDLE;
        return result == detail::kOk ? detail::change(m_key->checked.get(), name.c_str(), encoded)
                                     : result;
    }

    // A pointer to a text that there is not, as getenv() returns it.
    template <typename T>
    static bool isNull(const T& fallback) noexcept {
        static_assert(!std::is_null_pointer_v<T>, "a fallback must be a value");
        if constexpr (std::is_convertible_v<const T&, const char*>) {
            const char* const text = fallback;
            return !text;
        }
        return false;
    }

    static void setError(std::error_code& error, int result) noexcept {
        error = result == detail::kOk ? std::error_code() : detail::codeOf(result);
    }

    // The path is at fault as a key, which has no value's name.
    void throwBelow(const std::error_code& error, Name name) const {
        if (error) {
            detail::failAt(error.value(), m_core.get(),
                           name.is_whole() ? pathBelow(name) : std::string(),
                           static_cast<const char*>(nullptr), nullptr);
        }
    }

    void throwFor(const std::error_code& error, Name name) const {
        if (error) {
            detail::failAt(error.value(), m_core.get(), path(), name, nullptr);
        }
    }

    detail::SharedCore m_core;
    detail::SharedKey m_key;  // goes before its store
};

}  // namespace vqreg

#endif  // VQREGSTORE_KEY_H
