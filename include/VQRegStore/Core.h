/// @file
/// What stands behind the objects of VQRegStore.h; programs have no use for it.
#ifndef VQREGSTORE_CORE_H
#define VQREGSTORE_CORE_H

#include <VQRegLib.h>
#include <vqreg.h>

#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "VQRegStore/Value.h"

/// The handle of VQRegLib.h that an open key of vqreg.h stands for, as long as that is open. For this header
/// alone.
extern "C" VQREG_EXPORT VQRegLib::CRegKey* vqreg_key_handle(vqreg_key* key);

namespace vqreg {
namespace detail {

using VQRegLib::CRegKey;
using VQRegLib::CRegLib;

struct CloseStore {
    void operator()(vqreg_store* store) const { ::vqreg_close(store); }
};

struct CloseKey {
    void operator()(vqreg_key* key) const { ::vqreg_close_key(key); }
};

using CheckedKey = std::unique_ptr<vqreg_key, CloseKey>;

// An open key. Queries go through the handle of VQRegLib.h that it stands for, all else through the key of
// vqreg.h, which also tells when others have made it a value. Several threads may use both.
struct OpenKey {
    OpenKey(std::string ofPath, CheckedKey ofC)
        : handle(::vqreg_key_handle(ofC.get())), path(std::move(ofPath)), checked(std::move(ofC)) {}
    OpenKey(const OpenKey&) = delete;
    OpenKey& operator=(const OpenKey&) = delete;

    CRegKey* const handle;   // as long as the key
    const std::string path;  // below the root key
    const CheckedKey checked;
};

using SharedKey = std::shared_ptr<OpenKey>;

// The path below the root key that an argument means: one "/" in front is allowed. What has gone through
// here does not go through again, or a second one would be taken off.
inline std::string pathOf(Name name) {
    const std::string path = name.c_str() ? name.c_str() : "";
    return !path.empty() && path.front() == '/' ? path.substr(1) : path;
}

// The argument that means such a path.
inline std::string argumentOf(const std::string& path) {
    return '/' + path;
}

inline std::string joined(const std::string& path, const std::string& below) {
    return path.empty() || below.empty() ? path + below : path + '/' + below;
}

// A query whose data did not fit into a number's 4 bytes or a line of the file, or which failed. A number
// needs no more room, so what does is none; this process may have set texts and bytes that do.
template <typename T>
[[gnu::noinline, gnu::cold]] int queryAgain(CRegLib& session, CRegKey& key, const char* name,
                                            CRegLib::eDataType type, unsigned long size, int result,
                                            std::optional<T>& value) {
    std::vector<unsigned char> more;
    while (result == VQREG_E_BUFFER_TOO_SMALL && type == kTypeOf<T>) {
        more.resize(size);
        result = session.VQRegQueryValue(key, name, type, more.data(), &size);
        if (result >= 0 && type == kTypeOf<T>) {
            return detail::decode(more.data(), size, value);
        }
    }
    // Without memory a query succeeds and finds nothing.
    const bool isOther = result >= 0 || result == VQREG_E_BUFFER_TOO_SMALL;
    return !isOther ? result : type == CRegLib::eNone ? VQREG_E_FAIL : VQREG_E_BAD_TYPE;
}

template <typename T>
int query(CRegLib& session, CRegKey& key, const char* name, std::optional<T>& value) {
    constexpr std::size_t kRoom = kTypeOf<T> == CRegLib::eDword ? sizeof(std::uint32_t) : 2048;
    unsigned char buffer[kRoom];
    CRegLib::eDataType type = CRegLib::eNone;
    unsigned long size = kRoom;
    const int result = session.VQRegQueryValue(key, name, type, buffer, &size);
    return result >= 0 && type == kTypeOf<T>
               ? detail::decode(buffer, size, value)
               : detail::queryAgain(session, key, name, type, size, result, value);
}

// The same for a value of any type.
inline int queryAny(CRegLib& session, CRegKey& key, const char* name, std::optional<Value>& value) {
    std::vector<unsigned char> buffer(2048);
    CRegLib::eDataType type = CRegLib::eNone;
    unsigned long size = buffer.size();
    int result = session.VQRegQueryValue(key, name, type, buffer.data(), &size);
    while (result == VQREG_E_BUFFER_TOO_SMALL) {
        buffer.resize(size);
        result = session.VQRegQueryValue(key, name, type, buffer.data(), &size);
    }
    if (result < 0 || type == CRegLib::eNone) {
        return result < 0 ? result : VQREG_E_FAIL;
    }
    value.emplace(name, static_cast<Type>(type), buffer.data(), size);
    return kOk;
}

inline int change(vqreg_key* key, const char* name, const Encoded& value) {
    switch (value.type) {
        case Type::dword:
            return ::vqreg_key_set_dword(key, name, value.number);
        case Type::string:
            return std::memchr(value.data, 0, value.size)  // it would be cut there
                       ? VQREG_E_NOT_STORABLE
                       : ::vqreg_key_set_string(key, name, static_cast<const char*>(value.data));
        default:
            return ::vqreg_key_set_binary(key, name, value.data, value.size);
    }
}

// An update of the library for the length of a scope.
class Scope {
public:
    explicit Scope(vqreg_store* store)
        : m_store(store), m_result(::vqreg_begin_update(store)), m_isBegun(m_result >= 0) {}
    ~Scope() { (void)end(); }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

    // What beginning it returned, and after `end` what ending it did.
    int result() const { return m_result; }

    int end() {
        if (m_isBegun) {
            m_isBegun = false;
            m_result = ::vqreg_end_update(m_store);
        }
        return m_result;
    }

private:
    vqreg_store* m_store;
    int m_result;
    bool m_isBegun;
};

constexpr const char* kHoldsNul = "the path or name holds a NUL";

// A store that is open, or a place where there is none. Keys, updates and watches share it with the
// `Store`.
class Core {
public:
    // The session comes second: it would write a root key of any name.
    Core(Name file, Name root, int& result)
        : m_isDefault(file.is_whole() && !file.c_str()),
          m_file(file.c_str() ? file.c_str() : ""),
          m_refusal(refusalOf(file, root)) {
        result = VQREG_E_NOT_STORABLE;
        if (file.is_whole() && root.is_whole()) {
            m_store.reset(::vqreg_open(file.c_str(), root.c_str(), &result));
        }
        if (m_store) {
            m_session.emplace(file.c_str(), root.c_str(), CRegLib::eLocationDefault, nullptr);
        }
        if (m_store && !m_session->RootKey()) {
            m_store.reset();
            result = VQREG_E_NOT_INITIALIZED;
        }
    }

    bool isOpen() const { return m_store != nullptr; }
    CRegLib& session() { return *m_session; }
    vqreg_store* store() const { return m_store.get(); }
    std::string file() const { return m_store ? ::vqreg_file(m_store.get()) : m_file; }
    std::string why() const {
        return !isOpen() && !m_refusal.empty() ? m_refusal
                                               : whyOf(m_isDefault ? nullptr : m_file.c_str());
    }

    // Why the file could not give back a value, or a key where `name` is null; empty when it can.
    std::string whyNotStorable(const std::string& path, const char* name,
                               const Encoded& value) const {
        return sentenceOf([&](char* text, std::size_t size) {
            return ::vqreg_why_not_storable(m_store.get(), argumentOf(path).c_str(), name,
                                            static_cast<vqreg_type>(value.type), value.data,
                                            value.size, text, size);
        });
    }

    bool isStorable(const std::string& path, const char* name, const Encoded& value) const {
        return ::vqreg_why_not_storable(m_store.get(), argumentOf(path).c_str(), name,
                                        static_cast<vqreg_type>(value.type), value.data, value.size,
                                        nullptr, 0) == 0;
    }

    // The key of a path. Each opening of a path leaves records of its inner names in the library until the
    // store is closed: so a path is opened once, and again only when its key has been deleted, and one whose
    // key is missing never.
    int open(const std::string& path, bool create, SharedKey& key) {
        if (!isOpen()) {
            return VQREG_E_NOT_INITIALIZED;
        }
        key = find(path);
        int result = key ? lookAt(*key) : VQREG_E_INVALID_HANDLE;
        // Where others have made the root key a value, nothing below it can be opened.
        while (result == VQREG_E_INVALID_HANDLE &&
               ::vqreg_has_key(m_store.get(), nullptr) != VQREG_E_INVALID_HANDLE) {
            result = openNew(path, create, key);
        }
        return result;
    }

    int remove(const std::string& path) {
        const int result = isOpen() ? ::vqreg_delete_key(m_store.get(), argumentOf(path).c_str())
                                    : VQREG_E_NOT_INITIALIZED;
        if (result >= 0) {
            forget(path);
        }
        return result;
    }

    // Whether the key is there; whether it has a value without a name does not matter.
    static int lookAt(const OpenKey& key) {
        vqreg_type type = VQREG_NONE;
        std::size_t size = 0;
        const int result = ::vqreg_key_get(key.checked.get(), "", &type, nullptr, &size);
        return result == VQREG_E_NOT_FOUND || result == VQREG_E_NOT_A_VALUE ? kOk : result;
    }

private:
    using Keys = std::unordered_map<std::string, SharedKey>;

    SharedKey find(const std::string& path) {
        const std::lock_guard<std::mutex> guard(m_mutex);
        const auto found = m_keys.find(path);
        return found != m_keys.end() ? found->second : nullptr;
    }

    // The handles before are released outside the mutex: that takes the store's lock, which an update of
    // another thread may hold that waits for the mutex.
    void remember(const std::string& path, SharedKey key) {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_keys[path].swap(key);
    }

    void forget(const std::string& path) {
        Keys::node_type forgotten;
        const std::lock_guard<std::mutex> guard(m_mutex);
        forgotten = m_keys.extract(path);
    }

    // Another thread may delete the key before it is looked at: it is opened again.
    int openNew(const std::string& path, bool create, SharedKey& key) {
        vqreg_key* opened = nullptr;
        int result =
            ::vqreg_open_key(m_store.get(), argumentOf(path).c_str(), create ? 1 : 0, &opened);
        CheckedKey checked(opened);
        if (result < 0) {
            forget(path);
            return result;
        }
        key = std::make_shared<OpenKey>(path, std::move(checked));
        if (!key->handle) {
            return VQREG_E_FAIL;  // in this thread's update through another store
        }
        result = lookAt(*key);
        if (result >= 0) {
            remember(path, key);
        }
        return result;
    }

    // Why these are no file and no root key; empty where they are. A root key stands at the top, and the
    // line of a long one is shorter than would be told.
    static std::string refusalOf(Name file, Name root) {
        if (!file.is_whole() || !root.is_whole()) {
            return kHoldsNul;
        }
        const std::string key = root.c_str() ? root.c_str() : "";
        if (!root.c_str() || key.size() > 1000) {
            return {};
        }
        return sentenceOf([&](char* text, std::size_t size) {
            return ::vqreg_why_not_storable(nullptr, argumentOf(key.empty() ? "/" : key).c_str(),
                                            nullptr, VQREG_NONE, nullptr, 0, text, size);
        });
    }

    std::optional<CRegLib> m_session;  // first: queries find it without a step
    const bool m_isDefault;
    const std::string m_file;
    const std::string m_refusal;
    std::unique_ptr<vqreg_store, CloseStore> m_store;
    std::mutex m_mutex;
    Keys m_keys;  // after the session, which they need to their end
};

using SharedCore = std::shared_ptr<Core>;

// Throws for an operation on a key or a value, with the reason where the code alone says too little.
[[noreturn]] inline void failAt(int code, const Core* core, const std::string& path, Name name,
                                const Encoded* value) {
    std::string reason;
    if (core && isOfStore(code)) {
        reason = core->why();
    } else if (core && code == VQREG_E_NOT_STORABLE && name.is_whole()) {
        reason = core->whyNotStorable(path, name.c_str(), value ? *value : Encoded());
    }
    fail(code, path, name.c_str() ? name.c_str() : "", reason);
}

// A null pointer instead of a name is a failure of its own; here it may be a name with a NUL.
inline int refused(int code, Name name) {
    return name.is_whole() ? code : VQREG_E_NOT_STORABLE;
}

}  // namespace detail
}  // namespace vqreg

#endif  // VQREGSTORE_CORE_H
