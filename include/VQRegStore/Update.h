/// @file
/// Several changes as one. A part of VQRegStore.h.
#ifndef VQREGSTORE_UPDATE_H
#define VQREGSTORE_UPDATE_H

#include "VQRegStore/Store.h"

namespace vqreg {

namespace detail {

// The data of a value that is to be set, as a value of its own.
struct Data {
    Data() = default;
    explicit Data(const Encoded& from)
        : type(from.type),
          number(from.number),
          bytes(static_cast<const char*>(from.data), from.size) {}
    explicit Data(const Value& from) : type(from.type()) {
        std::error_code error;
        number = from.as<std::uint32_t>(error).value_or(0);
        bytes = from.as<std::string>(error).value_or(std::string());
        for (const std::byte each : from.as<Bytes>(error).value_or(Bytes())) {
            bytes += static_cast<char>(each);
        }
    }

    Encoded encoded() const {
        Encoded to;
        to.type = type;
        to.number = number;
        to.data = bytes.data();
        to.size = bytes.size();
        return to;
    }

    bool operator==(const Data& other) const {
        return type == other.type &&
               (type == Type::dword ? number == other.number : bytes == other.bytes);
    }

    Type type = Type::none;  // there is no value
    std::uint32_t number = 0;
    std::string bytes;
};

// One change of an update.
struct Step {
    enum class Kind { set, erase, create, remove };
    Kind kind;
    SharedKey key;  // of a value; null where its path says which
    std::string path;
    std::string name;
    Data data;
    std::optional<Data> only;  // the data that must be there, or nothing is done
};

}  // namespace detail

/// Changes that are collected and become one write of the file at `commit`: other processes see all of
/// them or none. Without `commit` nothing happens; nothing is locked before, and no file is opened. An
/// object belongs to one thread at a time; it keeps its store open.
///
///     vqreg::Update update(store);
///     update.set(ports, "Http", 8081);
///     update.set("Network/Proxy", "Host", "proxy.example");    // the key is made where it is missing
///     update.commit();
///
/// What the file could not give back is refused when it is collected, with the exception of `Key::set`. A
/// commit that fails has changed nothing: what it had done until then is taken back, before anybody else
/// has seen it, and the changes are still collected, for another `commit`. When it was the writing of the
/// file that failed, other processes may come in between; a value that one of them has set meanwhile keeps
/// what it was given. Where taking back fails as well, for want of memory or of a descriptor, changes stay
/// in this process's memory as after any change that could not be written. A key that was deleted and
/// made again in this way is another one for those who had it open.
class Update {
public:
    /// @param store  where the changes will be
    /// @throws Error  `errc::not_initialized`
    explicit Update(const Store& store) : m_core(store.m_core) {
        if (!store) {
            detail::failAt(VQREG_E_NOT_INITIALIZED, m_core.get(), {}, "", nullptr);
        }
    }
    /// Leaves the other one good for nothing but a new value.
    Update(Update&&) noexcept = default;
    /// Leaves the other one good for nothing but a new value.
    Update& operator=(Update&& other) noexcept {
        m_steps.swap(other.m_steps);
        m_core.swap(other.m_core);
        return *this;
    }

    /// Will set a value of an open key, which must be one of the same store. @throws Error  as `Key::set`
    template <typename T>
    void set(const Key& key, Name name, const T& value) {
        checkKey(key, name);
        add(detail::Step::Kind::set, key.m_key, key.path(), name, encodedFor({}, name, value));
    }
    /// Will set a value, and make the keys of the path that are missing. @throws Error  as `Key::set`
    template <typename T>
    void set(Name path, Name name, const T& value) {
        const std::string whole = checkNewPath(path);
        add(detail::Step::Kind::set, nullptr, whole, name, encodedFor(whole, name, value));
    }

    /// Will delete a value of an open key. There may be none.
    void erase(const Key& key, Name name) {
        checkKey(key, name);
        add(detail::Step::Kind::erase, key.m_key, key.path(), name, {});
    }
    /// Will delete a value. There may be none, and no such key.
    void erase(Name path, Name name) {
        add(detail::Step::Kind::erase, nullptr, checkPath(path), name, {});
    }

    /// Will make a key. It may be there.
    void create(Name path) { add(detail::Step::Kind::create, nullptr, checkNewPath(path), "", {}); }
    /// Will delete a key, which must be empty by then. There may be none.
    void remove(Name path) { add(detail::Step::Kind::remove, nullptr, checkPath(path), "", {}); }

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
        Failure failure;
        const int result = run(failure);
        if (result < 0) {
            detail::failAt(result, m_core.get(), failure.path, failure.name, nullptr);
        }
    }

    /// The same without an exception but `std::bad_alloc`.
    void commit(std::error_code& error) {
        Failure failure;
        const int result = run(failure);
        error = result < 0 ? detail::codeOf(result) : std::error_code();
    }

private:
    using Step = detail::Step;
    using Steps = std::vector<Step>;

    struct Failure {
        std::string path;
        std::string name;
    };

    void add(Step::Kind kind, detail::SharedKey key, std::string path, Name name,
             detail::Data data) {
        m_steps.push_back(
            {kind, std::move(key), std::move(path), name.c_str(), std::move(data), {}});
    }

    [[noreturn]] void refuse(int code, const std::string& path, Name name,
                             const detail::Encoded* value = nullptr) const {
        detail::failAt(code, m_core.get(), path, name, value);
    }

    // A key of another store would be changed without the lock of this one.
    void checkKey(const Key& key, Name name) const {
        if (!key || key.m_core->session().RootKey() != m_core->session().RootKey()) {
            refuse(VQREG_E_INVALID_HANDLE, key.path(), name);
        }
        if (!name.c_str()) {
            refuse(detail::refused(VQREG_E_FAIL, name), key.path(), name);
        }
    }

    std::string checkPath(Name path) const {
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

    int run(Failure& failure) {
        if (m_steps.empty()) {
            return detail::kOk;
        }
        VQRegLib::CRegUpdate update(m_core->session());
        if (update.result() < 0) {
            return update.result();
        }
        Steps done;  // backwards: what takes back what has been done
        const int result = applyAll(done, failure);
        if (result < 0) {
            return result;
        }
        if (update.end() < 0) {
            const VQRegLib::CRegUpdate again(m_core->session());
            if (again.result() >= 0) {
                takeBack(done);
            }
            return update.result();
        }
        m_steps.clear();
        return detail::kOk;
    }

    int applyAll(Steps& done, Failure& failure) {
        try {
            for (const Step& step : m_steps) {
                const int result = apply(step, done);
                if (result < 0) {
                    failure = {step.path, step.name};
                    takeBack(done);
                    return result;
                }
            }
        } catch (...) {
            takeBack(done);
            throw;
        }
        return detail::kOk;
    }

    // The last first. What cannot be taken back stays; the rest is.
    void takeBack(const Steps& done) noexcept {
        for (auto step = done.rbegin(); step != done.rend(); ++step) {
            try {
                Steps unused;
                (void)apply(*step, unused);
            } catch (...) {
                continue;  // without memory
            }
        }
    }

    int apply(const Step& step, Steps& done) {
        switch (step.kind) {
            case Step::Kind::create:
                return create(step.path, done);
            case Step::Kind::remove:
                return remove(step, done);
            default:
                return changeValue(step, done);
        }
    }

    int create(const std::string& path, Steps& done) {
        detail::SharedKey key;
        int result = m_core->open(path, false, key);
        if (result != VQREG_E_KEY_NOT_FOUND) {
            return result;
        }
        const auto all = static_cast<Steps::difference_type>(done.size());
        noteMissing(path, done);
        result = m_core->open(path, true, key);
        if (result < 0) {
            done.erase(done.begin() + all, done.end());
        }
        return result;
    }

    // How to take back the making of a path: those of its keys that are missing, outermost first.
    void noteMissing(const std::string& path, Steps& done) {
        for (std::size_t end = 0; end != std::string::npos;) {
            end = path.find_first_of("/\\", end + 1);
            detail::SharedKey key;
            std::string part = path.substr(0, end);
            if (m_core->open(part, false, key) == VQREG_E_KEY_NOT_FOUND) {
                done.push_back({Step::Kind::remove, nullptr, std::move(part), {}, {}, {}});
            }
        }
    }

    int remove(const Step& step, Steps& done) {
        const int result = ::vqreg_delete_key(m_core->store(), step.path.c_str());
        if (result >= 0) {
            done.push_back({Step::Kind::create, nullptr, step.path, {}, {}, {}});
        }
        return result == VQREG_E_KEY_NOT_FOUND ? detail::kOk : result;
    }

    int keyOf(const Step& step, Steps& done, detail::SharedKey& key) {
        key = step.key;
        if (key) {
            return detail::kOk;
        }
        const int result = step.kind == Step::Kind::set ? create(step.path, done) : detail::kOk;
        return result < 0 ? result : m_core->open(step.path, false, key);
    }

    int changeValue(const Step& step, Steps& done) {
        detail::SharedKey key;
        int result = keyOf(step, done, key);
        if (result < 0) {
            return result == VQREG_E_KEY_NOT_FOUND ? detail::kOk : result;
        }
        std::optional<Value> before;
        result = detail::queryAny(m_core->session(), *key->handle, step.name.c_str(), before);
        if (result < 0 && result != VQREG_E_NOT_FOUND) {
            return result;
        }
        // By its path: the key may be deleted, and made again.
        Step back{Step::Kind::set, nullptr, step.path, step.name, {}, step.data};
        if (before) {
            back.data = detail::Data(*before);
        } else {
            back.kind = Step::Kind::erase;
        }
        if ((step.only && !(*step.only == back.data)) || step.data == back.data) {
            return detail::kOk;
        }
        done.push_back(std::move(back));
        result = put(step, *key);
        if (result < 0) {
            done.pop_back();
        }
        return result;
    }

    int put(const Step& step, const detail::OpenKey& key) {
        return step.kind == Step::Kind::set
                   ? detail::change(m_core->session(), *key.handle, step.name.c_str(),
                                    step.data.encoded())
                   : m_core->session().VQRegDeleteValue(*key.handle, step.name.c_str());
    }

    detail::SharedCore m_core;
    Steps m_steps;
};

}  // namespace vqreg

#endif  // VQREGSTORE_UPDATE_H
