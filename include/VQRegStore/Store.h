/// @file
/// An open store. A part of VQRegStore.h.
#ifndef VQREGSTORE_STORE_H
#define VQREGSTORE_STORE_H

#include "VQRegStore/Key.h"

namespace vqreg {

/// An open store: one file with a tree of keys, which all processes of the machine share. It may be moved,
/// not copied, and any number of threads may use it at once (not move it). It stays open until its keys,
/// updates and watches are gone as well.
///
/// Paths have "/" between their names; null, "" and "/" are the root key. Names are found regardless of
/// ASCII case. A store remembers the paths that were opened until it is closed, so opening one again costs
/// little; keep keys that are used often all the same.
class Store {
public:
    /// Opens the machine's default store, "/velquist/etc/Velquist.cfg" where "/velquist/etc" exists and
    /// "/etc/Velquist.cfg" otherwise.
    /// @throws Error  `errc::not_initialized`, whose text has what `why` says
    Store() : Store(nullptr) {}

    /// Opens a store.
    /// @param file  absolute path of its file, which is made when it is missing; null for the default store
    /// @param root  name or path of the root key; null for "Velquist"
    /// @throws Error  as for the default store; `errc::not_storable`, before anything is changed, for a root
    ///                key that the file could not give back, and for a NUL in either
    explicit Store(Name file, Name root = nullptr) {
        std::error_code error;
        open(file, root, error);
        if (error) {
            const bool isOfRoot = error == errc::not_storable && file.is_whole() && root.c_str();
            detail::fail(error.value(), isOfRoot ? root.c_str() : "", {},
                         m_core ? m_core->why() : std::string());
        }
    }

    /// The same without an exception. Where it fails there is an object all the same: each of its
    /// operations fails with `errc::not_initialized`, and `why` says why.
    Store(Name file, Name root, std::error_code& error) { open(file, root, error); }

    /// Leaves the other one good for nothing but a new value.
    Store(Store&&) noexcept = default;
    /// Leaves the other one good for nothing but a new value.
    Store& operator=(Store&&) noexcept = default;

    /// Whether it could be opened.
    explicit operator bool() const noexcept { return m_core && m_core->isOpen(); }
    /// The path of the file, behind the symbolic links that led to it.
    std::string file() const { return m_core ? m_core->file() : std::string(); }

    /// Why this store cannot be used, for people: its directory is missing or may not be written, the file
    /// may not be read, or is malformed, with line and column, or what its root key may not be called. Empty
    /// when nothing stands in the way.
    std::string why() const {
        return m_core ? m_core->why() : error_message(errc::not_initialized);
    }
    /// The same for a store that is not open. Does not open it.
    /// @param file  null for the default store
    static std::string why(Name file) {
        return file.is_whole() ? detail::whyOf(file.c_str()) : detail::kHoldsNul;
    }

    /// @name Keys
    /// @{

    /// Opens a key.
    /// @throws Error  `errc::key_not_found`; `errc::not_a_key` where a name of the path is a value's
    Key key(Name path) const { return opened(path, false); }
    /// The same without an exception: the key is empty when it could not be opened.
    Key key(Name path, std::error_code& error) const { return opened(path, false, error); }

    /// Opens a key, and makes those of the path that are missing.
    /// @throws Error  `errc::not_a_key`; `errc::not_storable` for a name that the file could not give back
    Key create(Name path) const { return opened(path, true); }
    /// The same without an exception.
    Key create(Name path, std::error_code& error) const { return opened(path, true, error); }

    /// Opens a key that may be missing.
    /// @return nothing when there is none
    std::optional<Key> find(Name path) const {
        std::error_code error;
        std::optional<Key> found = find(path, error);
        if (error) {
            failed(error.value(), path);
        }
        return found;
    }
    /// The same without an exception.
    std::optional<Key> find(Name path, std::error_code& error) const {
        return Key::unlessMissing(key(path, error), error);
    }

    /// The root key.
    Key root() const { return key(nullptr); }
    /// The same without an exception.
    Key root(std::error_code& error) const { return key(nullptr, error); }

    /// Deletes an empty key.
    /// @return false when there was none
    /// @throws Error  `errc::key_not_empty`; `errc::not_a_key`; `errc::fail` for the root key, which stays
    bool remove(Name path) const {
        std::error_code error;
        const bool wasThere = remove(path, error);
        if (error) {
            failed(error.value(), path);
        }
        return wasThere;
    }
    /// The same without an exception.
    bool remove(Name path, std::error_code& error) const {
        const int refused = refusalOf(path);
        const int result = refused < 0 ? refused : m_core->remove(detail::pathOf(path));
        const bool isGone = result >= 0 || result == VQREG_E_KEY_NOT_FOUND;
        error = isGone ? std::error_code() : detail::codeOf(result);
        return result >= 0;
    }
    /// @}

    /// Calls a function while nobody else can change the store, so that what it reads is still so when it
    /// writes: other processes that want to change it wait, and so do other threads of this one that want to
    /// change or to read it, so be brief. Its changes are one write at its end, also when it ends with an
    /// exception. An `Update` that is committed in it has succeeded, and has forgotten its changes, before
    /// they are written.
    ///
    /// Open no other store in it, and destroy none, nor the last object of one: that waits for a thread that is
    /// opening a store, and that one may be waiting for this one. Destroy no `Watch` either: that waits for its
    /// function, which may be waiting, too.
    /// @return what the function returned
    /// @throws Error  `errc::file_open` when the file cannot be written: the changes stay in this process's
    ///                memory then, and go out with the next one that succeeds
    template <typename Function>
    auto exclusively(Function&& function) const -> std::invoke_result_t<Function> {
        using Returned = std::invoke_result_t<Function>;
        if (!*this) {
            failed(VQREG_E_NOT_INITIALIZED, "");
        }
        detail::Scope update(m_core->store());
        if (update.result() < 0) {
            failed(update.result(), "");
        }
        if constexpr (std::is_void_v<Returned>) {
            std::forward<Function>(function)();
            end(update);
        } else {
            decltype(auto) returned = std::forward<Function>(function)();
            end(update);
            return std::forward<Returned>(returned);  // a reference stays one, and a value is moved
        }
    }

    /// Makes every process read the file again, after a change by other means than the library.
    void reload() const { call(::vqreg_reload); }
    /// The same without an exception.
    void reload(std::error_code& error) const { call(::vqreg_reload, error); }
    /// Tells every process of the machine to look for changes now. Change handlers of `VQRegLib.h` wait for
    /// that; a `Watch` needs no telling.
    void notify() const { call(::vqreg_notify); }
    /// The same without an exception.
    void notify(std::error_code& error) const { call(::vqreg_notify, error); }

private:
    friend class Update;
    friend class Changes;

    void open(Name file, Name root, std::error_code& error) {
        try {
            int result = VQREG_OK;
            m_core = std::make_shared<detail::Core>(file, root, result);
            error = result < 0 ? detail::codeOf(result) : std::error_code();
        } catch (const VQException&) {
            error = errc::fail;
        }
    }

    Key opened(Name path, bool create) const {
        std::error_code error;
        Key key = opened(path, create, error);
        if (error) {
            failed(error.value(), path);
        }
        return key;
    }

    Key opened(Name path, bool create, std::error_code& error) const {
        const int refused = refusalOf(path);
        if (refused < 0) {
            error = detail::codeOf(refused);
            return {};
        }
        return Key::opened(m_core, detail::pathOf(path), create, error);
    }

    int refusalOf(Name path) const {
        return !m_core            ? VQREG_E_NOT_INITIALIZED
               : !path.is_whole() ? VQREG_E_NOT_STORABLE
                                  : detail::kOk;
    }

    [[noreturn]] void failed(int code, Name path) const {
        // A path is at fault as a key, which has no value's name.
        const std::string whole = path.is_whole() ? detail::pathOf(path) : std::string();
        detail::failAt(code, m_core.get(), whole, static_cast<const char*>(nullptr), nullptr);
    }

    void end(detail::Scope& update) const {
        if (update.end() < 0) {
            failed(update.result(), "");
        }
    }

    void call(int (*operation)(vqreg_store*), std::error_code& error) const {
        const int result = *this ? operation(m_core->store()) : VQREG_E_NOT_INITIALIZED;
        error = result < 0 ? detail::codeOf(result) : std::error_code();
    }

    void call(int (*operation)(vqreg_store*)) const {
        std::error_code error;
        call(operation, error);
        if (error) {
            failed(error.value(), "");
        }
    }

    detail::SharedCore m_core;
};

}  // namespace vqreg

#endif  // VQREGSTORE_STORE_H
