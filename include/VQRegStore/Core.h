/// @file
/// What stands behind the objects of VQRegStore.h; programs have no use for it.
#ifndef VQREGSTORE_CORE_H
#define VQREGSTORE_CORE_H

#include <VQRegLib.h>
#include <vqreg.h>

#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "VQRegStore/Value.h"

namespace vqreg {
namespace detail {

using VQRegLib::CRegKey;
using VQRegLib::CRegLib;

// A key handle that is filled once, so that several threads may use it. It leaves its store under the
// store's lock, as others may be inside.
struct OpenKey {
    OpenKey(CRegLib& ofSession, std::string ofPath)
        : session(ofSession), path(std::move(ofPath)), own(1, nullptr) {
        own.front() = new CRegKey;
        handle = own.front();
    }
    // The root key, which is the store's own.
    explicit OpenKey(CRegLib& ofSession) : session(ofSession), handle(ofSession.RootKey()) {}
    ~OpenKey() { (void)session.VQRegDestroyKeyVect(own); }
    OpenKey(const OpenKey&) = delete;
    OpenKey& operator=(const OpenKey&) = delete;

    CRegLib& session;
    CRegKey* handle = nullptr;
    std::string path;  // below the root key
    std::vector<CRegKey*> own;
};

using SharedKey = std::shared_ptr<OpenKey>;

struct CloseStore {
    void operator()(vqreg_store* store) const { ::vqreg_close(store); }
};

// The path below the root key that an argument means: one "/" in front is allowed.
inline std::string pathOf(Name name) {
    const std::string path = name.c_str() ? name.c_str() : "";
    return !path.empty() && path.front() == '/' ? path.substr(1) : path;
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
            return decode(more.data(), size, value);
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
               ? decode(buffer, size, value)
               : queryAgain(session, key, name, type, size, result, value);
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

inline int change(CRegLib& session, CRegKey& key, const char* name, const Encoded& value) {
    switch (value.type) {
        case Type::dword:
            return session.VQRegSetValue(key, name, static_cast<unsigned long>(value.number));
        case Type::string:
            return session.VQRegSetValue(key, name, static_cast<const char*>(value.data));
        default:
            return session.VQRegSetValue(key, name, static_cast<const unsigned char*>(value.data),
                                         value.size);
    }
}

// A store that is open, or a place where there is none. Keys, updates and watches share it with the
// `Store`.
class Core {
public:
    Core(Name file, Name root)
        : m_session(file.c_str(), root.c_str(), CRegLib::eLocationDefault, nullptr),
          m_isDefault(file.c_str() == nullptr),
          m_file(m_isDefault ? "" : file.c_str()) {
        if (m_session.RootKey()) {
            m_store.reset(::vqreg_open(file.c_str(), root.c_str(), nullptr));
        }
    }

    bool isOpen() const { return m_store != nullptr; }
    CRegLib& session() { return m_session; }
    vqreg_store* store() const { return m_store.get(); }
    std::string file() const { return m_store ? ::vqreg_file(m_store.get()) : m_file; }
    std::string why() const { return whyOf(m_isDefault ? nullptr : m_file.c_str()); }

    // Why the file could not give back a value, or a key where `name` is null; empty when it can.
    std::string whyNotStorable(const std::string& path, const char* name,
                               const Encoded& value) const {
        return sentenceOf([&](char* text, std::size_t size) {
            return ::vqreg_why_not_storable(m_store.get(), path.c_str(), name,
                                            static_cast<vqreg_type>(value.type), value.data,
                                            value.size, text, size);
        });
    }

    bool isStorable(const std::string& path, const char* name, const Encoded& value) const {
        return ::vqreg_why_not_storable(m_store.get(), path.c_str(), name,
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
        for (;;) {
            const int there = create ? ::vqreg_create_key(m_store.get(), path.c_str())
                                     : ::vqreg_has_key(m_store.get(), path.c_str());
            if (there < 0) {
                remember(path, nullptr);
                return there;
            }
            const int result = openPresent(path, key);
            if (result != VQREG_E_KEY_NOT_FOUND || !create) {
                return result;
            }
        }
    }

    // Whether the key is there; whether it has a value without a name does not matter.
    int lookAt(OpenKey& key) {
        CRegLib::eDataType type = CRegLib::eNone;
        const int result =
            key.handle ? m_session.VQRegQueryValueType(*key.handle, "", type) : VQREG_E_FAIL;
        return result == VQREG_E_NOT_FOUND || result == VQREG_E_NOT_A_VALUE ? kOk : result;
    }

private:
    SharedKey find(const std::string& path) {
        const std::lock_guard<std::mutex> guard(m_mutex);
        const auto found = m_keys.find(path);
        return found != m_keys.end() ? found->second : nullptr;
    }

    // The handle before is released outside the mutex: it takes the store's lock, which an update of another
    // thread may hold that waits for the mutex.
    void remember(const std::string& path, SharedKey key) {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_keys[path].swap(key);
    }

    int openPresent(const std::string& path, SharedKey& key) {
        key = find(path);
        if (key) {
            const int result = lookAt(*key);
            if (result != VQREG_E_INVALID_HANDLE) {
                return result;
            }
        }
        key = path.empty() ? std::make_shared<OpenKey>(m_session)
                           : std::make_shared<OpenKey>(m_session, path);
        const int result = path.empty() ? lookAt(*key) : fill(*key);
        if (result >= 0) {
            remember(path, key);
        }
        return result;
    }

    int fill(OpenKey& key) {
        try {
            return m_session.VQRegCreateKey(nullptr, key.path.c_str(), *key.handle, 0);
        } catch (const VQException&) {
            return VQREG_E_FAIL;
        }
    }

    CRegLib m_session;  // first: queries find it without a step
    const bool m_isDefault;
    const std::string m_file;
    std::unique_ptr<vqreg_store, CloseStore> m_store;
    std::mutex m_mutex;
    std::unordered_map<std::string, SharedKey>
        m_keys;  // after the session, which they need to their end
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
