// What stands behind the handles of the C interface.
#ifndef REGLIB_C_CSTORE_H
#define REGLIB_C_CSTORE_H

#include <memory>
#include <string>
#include <string_view>

#include "RegLib/c/SharedKey.h"
#include "RegLib/session/SessionLock.h"
#include "RegLib/store/RegLibAccess.h"
#include "VQRegLib.h"
#include "vqreg.h"

namespace VQRegLib {

// A session with what the C interface remembers of it. Keys and watches share it with the store's handle.
class CStoreOfC {
public:
    CStoreOfC(const char* file, const char* root);

    bool isOpen() const { return m_session.RootKey() != nullptr; }
    CRegLib& session() { return m_session; }
    const char* file() const;                               // behind its links
    const std::string& rootPath() const { return m_root; }  // names with "/" between them

    // Updates of the session; those that were begun here and not ended can be dropped.
    [[nodiscard]] int beginUpdate();
    [[nodiscard]] int endUpdate();
    void dropUpdates() { VQRegLib::dropUpdates(store(), m_updateNumber, m_updates); }

    // Opens the key of a path below the root key: an own handle for each call. With `create`, a path that
    // the file cannot give back is refused.
    [[nodiscard]] int open(std::string_view path, bool create, std::shared_ptr<CSharedKey>& key);

    // Deletes the empty key of a path.
    [[nodiscard]] int remove(std::string_view path);

    // Whether the key has gone, or a value has taken its place or that of a key above it.
    bool isGone(const CRegKey& key);

    // The same through the handle that belongs to the path; `use` gets it, and is called again with a new
    // one when the key has gone meanwhile.
    template <typename Use>
    [[nodiscard]] int withKey(const char* given, bool create, Use&& use) {
        const std::string_view path = pathOf(given);
        if (path.empty()) {
            CRegKey* const root = m_session.RootKey();
            const int result = root ? use(*root) : VQREG_E_FAIL;
            return isRootGone() ? VQREG_E_INVALID_HANDLE : result;
        }
        for (;;) {
            std::shared_ptr<CSharedKey> key = m_keys.find(path);
            if (!key) {
                const int result = open(path, create, key);
                if (result < 0) {
                    return result;
                }
                key = m_keys.add(path, key);
            }
            // Afterwards: what others have done comes in with the operation.
            const int result = use(key->get());
            if (result != VQREG_E_INVALID_HANDLE && !isGone(key->get())) {
                return result;
            }
            m_keys.drop(path, key);
            if (isRootGone()) {
                return VQREG_E_INVALID_HANDLE;  // a new one would be gone, too
            }
        }
    }

    // Calls something that no other thread of the process comes into. A change is made, and its key looked
    // at, in one: the key may go right afterwards, which is no failure of what has been done.
    template <typename Call>
    [[nodiscard]] int undisturbed(Call&& call) {
        const CSessionGuard guard(store(), __LINE__);
        return guard.isEntered() ? call() : VQREG_E_FAIL;
    }

    // Null, "" and "/" are the root key; one "/" in front of others is allowed.
    static std::string_view pathOf(const char* given);

private:
    CRegLibImpl& store() const { return *CRegLibAccess::store(m_session); }
    bool isRootGone();
    [[nodiscard]] int openOrMake(std::string_view path, bool create,
                                 std::shared_ptr<CSharedKey>& key);
    [[nodiscard]] int removeEmpty(std::string_view path);
    // Calls the session, whose lock the caller holds. Without memory for a handle that leaves the lock
    // entered once more, as VQRegLib.h says.
    template <typename Call>
    [[nodiscard]] int fillingHandle(Call&& call);
    [[nodiscard]] bool isStorable(std::string_view path) const;
    [[nodiscard]] int openEach(std::string_view path, bool create,
                               std::shared_ptr<CSharedKey>& key);

    const std::string m_root;
    CRegLib m_session;
    CKeysByPath m_keys;  // after the session, which they need to their end
    // Guarded by the session lock, which an update holds.
    int m_updates = 0;                 // begun here and not ended, as a part of
    std::uint32_t m_updateNumber = 0;  // this outermost one
};

}  // namespace VQRegLib

struct vqreg_store {
    std::shared_ptr<VQRegLib::CStoreOfC> m_store;
};

struct vqreg_key {
    std::shared_ptr<VQRegLib::CStoreOfC> m_store;
    std::shared_ptr<VQRegLib::CSharedKey> m_key;  // null for the root key, which is the store's own

    VQRegLib::CRegKey* handle() const {
        return m_key ? &m_key->get() : m_store->session().RootKey();
    }

    // Calls an operation with the key's handle; what it has done in a key that is gone counts for nothing.
    template <typename Use>
    [[nodiscard]] int use(Use&& use) const {
        VQRegLib::CRegKey* const key = handle();
        if (!key) {
            return VQREG_E_FAIL;
        }
        const int result = use(*key);
        return m_store->isGone(*key) ? VQREG_E_INVALID_HANDLE : result;
    }
};

#endif  // REGLIB_C_CSTORE_H
