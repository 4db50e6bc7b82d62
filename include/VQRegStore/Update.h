/// @file
/// Several changes as one. A part of VQRegStore.h.
#ifndef VQREGSTORE_UPDATE_H
#define VQREGSTORE_UPDATE_H

#include "VQRegStore/Applier.h"
#include "VQRegStore/Store.h"

namespace vqreg {

/// Changes that are collected and become one write of the file at `commit`: other processes see all of
/// them or none. Without `commit` nothing happens; nothing is locked before, and no file is opened. An
/// object belongs to one thread at a time; it keeps its store open.
///
///     vqreg::Update update(store);
///     update.set(ports, "Http", 8081);
///     update.set("Network/Proxy", "Host", "proxy.example");    // the key is made where it is missing
///     update.commit();
///
/// What the file could not give back is refused when it is collected, as by `Key::set`. A commit looks first
/// whether its changes are possible. One that fails has changed nothing: what it had done until then is
/// taken back before anybody else has seen it, and the changes are still collected, for another `commit`.
/// Where that is only found while they are made, as for what is behind a deletion or in a key that the update
/// itself makes, the file is written once more with the text that it has. Where the writing of the file has failed, other processes may come in between; a value that
/// one of them has set meanwhile keeps what it was given. Where taking back fails as well, for want of memory
/// or of a descriptor, changes stay in this process's memory as after any change that could not be written.
/// A key that was deleted and made again in this way is another one for those who had it open, but not for the
/// next commit of this object.
class Update {
public:
    /// @param store  where the changes will be
    /// @throws Error  `errc::not_initialized`
    explicit Update(const Store& store) : m_core(store.m_core) {
        if (!store) {
            detail::failAt(VQREG_E_NOT_INITIALIZED, m_core.get(), {}, "", nullptr);
        }
    }
    /// The same without an exception. Where it fails nothing can be collected.
    Update(const Store& store, std::error_code& error) : m_core(store ? store.m_core : nullptr) {
        error = store ? std::error_code() : make_error_code(errc::not_initialized);
    }
    /// Leaves the other one good for nothing but a new value.
    Update(Update&&) noexcept = default;
    /// Leaves the other one good for nothing but a new value.
    Update& operator=(Update&& other) noexcept {
        Update taken(std::move(other));
        m_steps.swap(taken.m_steps);  // what this one had collected goes with it
        m_core.swap(taken.m_core);
        return *this;
    }

    /// Will set a value of an open key, which must be one of the same store. @throws Error  as `Key::set`
    template <typename T>
    void set(const Key& key, Name name, const T& value) {
        checkKey(key, name);
        add(detail::Step::Kind::set, key, name, encodedFor({}, name, value));
    }
    /// Will set a value, and make the keys of the path that are missing. @throws Error  as `Key::set`
    template <typename T>
    void set(Name path, Name name, const T& value) {
        const std::string whole = checkNewPath(path);
        add(detail::Step::Kind::set, whole, name, encodedFor(whole, name, value));
    }

    /// Will delete a value of an open key. There may be none.
    void erase(const Key& key, Name name) {
        checkKey(key, name);
        add(detail::Step::Kind::erase, key, name, {});
    }
    /// Will delete a value. There may be none, and no such key.
    void erase(Name path, Name name) { add(detail::Step::Kind::erase, checkPath(path), name, {}); }

    /// Will make a key. It may be there.
    void create(Name path) { add(detail::Step::Kind::create, checkNewPath(path), "", {}); }
    /// Will delete a key, which must be empty by then. There may be none.
    void remove(Name path) { add(detail::Step::Kind::remove, checkPath(path), "", {}); }

    /// @name The same without an exception
    /// @{

    /// As the other one.
    template <typename T>
    void set(const Key& key, Name name, const T& value, std::error_code& error) {
        quietly(error, [&] { set(key, name, value); });
    }
    /// As the other one.
    template <typename T>
    void set(Name path, Name name, const T& value, std::error_code& error) {
        quietly(error, [&] { set(path, name, value); });
    }
    /// As the other one.
    void erase(const Key& key, Name name, std::error_code& error) {
        quietly(error, [&] { erase(key, name); });
    }
    /// As the other one.
    void erase(Name path, Name name, std::error_code& error) {
        quietly(error, [&] { erase(path, name); });
    }
    /// As the other one.
    void create(Name path, std::error_code& error) {
        quietly(error, [&] { create(path); });
    }
    /// As the other one.
    void remove(Name path, std::error_code& error) {
        quietly(error, [&] { remove(path); });
    }
    /// @}

    /// Whether no change is collected.
    bool empty() const noexcept { return m_steps.empty(); }
    /// Forgets what is collected.
    void clear() noexcept { m_steps.clear(); }

    /// Makes the changes, in the order in which they were collected, in one write of the file. None is
    /// collected afterwards. Without a change there is nothing to do, and nothing that could fail.
    /// @throws Error  `errc::file_open` and `errc::bad_format`; `errc::not_a_value`, `errc::not_a_key` and
    ///                `errc::key_not_empty` for a change that is not possible; `errc::invalid_handle` when
    ///                this process has deleted a key
    void commit() {
        detail::Failure failure;
        const int result = run(failure);
        if (result < 0) {
            detail::failAt(result, m_core.get(), failure.path, failure.name, nullptr);
        }
    }

    /// The same without an exception but `std::bad_alloc`.
    void commit(std::error_code& error) {
        detail::Failure failure;
        const int result = run(failure);
        error = result < 0 ? detail::codeOf(result) : std::error_code();
    }

private:
    using Step = detail::Step;

    template <typename Call>
    static void quietly(std::error_code& error, Call call) {
        try {
            call();
            error.clear();
        } catch (const Error& refused) {
            error = refused.code();
        }
    }

    void add(Step::Kind kind, std::string path, Name name, detail::Data data) {
        m_steps.push_back(
            {kind, nullptr, nullptr, std::move(path), name.c_str(), std::move(data), {}});
    }

    void add(Step::Kind kind, const Key& key, Name name, detail::Data data) {
        add(kind, key.path(), name, std::move(data));
        m_steps.back().core = key.m_core;
        m_steps.back().key = key.m_key;
    }

    [[noreturn]] void refuse(int code, const std::string& path, Name name,
                             const detail::Encoded* value = nullptr) const {
        detail::failAt(code, m_core.get(), path, name, value);
    }

    // A key of another store would be changed without the lock of this one.
    void checkKey(const Key& key, Name name) const {
        checkStore();
        if (!key || key.m_core->session().RootKey() != m_core->session().RootKey()) {
            refuse(VQREG_E_INVALID_HANDLE, key.path(), name);
        }
        if (!name.c_str()) {
            refuse(detail::refused(VQREG_E_FAIL, name), key.path(), name);
        }
    }

    void checkStore() const {
        if (!m_core) {
            refuse(VQREG_E_NOT_INITIALIZED, {}, "");
        }
    }

    std::string checkPath(Name path) const {
        checkStore();
        if (!path.is_whole()) {
            refuse(VQREG_E_NOT_STORABLE, {}, path);
        }
        return detail::pathOf(path);
    }

    // One that the file could not give back, unless it is there all the same.
    std::string checkNewPath(Name path) const {
        std::string whole = checkPath(path);
        detail::SharedKey key;
        if (!m_core->isStorable(whole, nullptr, {}) &&
            m_core->open(whole, false, key) == VQREG_E_KEY_NOT_FOUND) {
            refuse(VQREG_E_NOT_STORABLE, whole, static_cast<const char*>(nullptr));
        }
        return whole;
    }

    template <typename T>
    detail::Data encodedFor(const std::string& path, Name name, const T& value) const {
        detail::Encoded encoded;
        int result = detail::encode(value, encoded);
        if (result == detail::kOk && !name.c_str()) {
            result = VQREG_E_FAIL;
        }
        if (result == detail::kOk && !m_core->isStorable({}, name.c_str(), encoded)) {
            result = VQREG_E_NOT_STORABLE;
        }
        if (result != detail::kOk) {
            refuse(detail::refused(result, name), path, name, &encoded);
        }
        return detail::Data(encoded);
    }

    int run(detail::Failure& failure) {
        const int result = m_core ? detail::Applier(*m_core).run(m_steps, failure) : detail::kOk;
        if (result >= 0) {
            m_steps.clear();
        }
        return result;
    }

    detail::SharedCore m_core;
    detail::Steps m_steps;
};

}  // namespace vqreg

#endif  // VQREGSTORE_UPDATE_H
