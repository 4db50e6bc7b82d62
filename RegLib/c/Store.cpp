// Stores and keys of the C interface.
//
// It is a thin coat over the sessions of C++, with two things that those leave to their callers: a key can
// be named by its path in every call, and what the file could not give back is refused.
#include <new>

#include "RegLib/c/CStore.h"
#include "RegLib/c/Guarded.h"
#include "RegLib/file/FileStore.h"
#include "RegLib/session/SessionLock.h"
#include "RegLib/store/RegLibAccess.h"
#include "RegLib/text/KeyPath.h"
#include "RegLib/text/Storable.h"

namespace VQRegLib {

CStoreOfC::CStoreOfC(const char* file, const char* root)
    : m_root(root ? root : g_szRootKeynameFile),
      m_session(file, root, CRegLib::eLocationDefault, nullptr) {}

const char* CStoreOfC::file() const {
    return store().m_pszFileName;
}

std::string_view CStoreOfC::pathOf(const char* given) {
    std::string_view path = given ? given : "";
    path.remove_prefix(path.starts_with('/') ? 1 : 0);
    return path;
}

bool CStoreOfC::isStorable(std::string_view path) const {
    return isStorablePath(m_root.size() + 2, path);  // with its brackets
}

// The handle is the only thing that is half done, and nobody gets it: so others may go on.
template <typename Call>
int CStoreOfC::fillingHandle(Call&& call) NO_THREAD_SAFETY_ANALYSIS {
    try {
        return call();
    } catch (const VQException&) {
        store().m_critSec.leave(__LINE__);
        return VQREG_E_FAIL;
    }
}

// Name by name, since a path that is opened at once leaves a record of its inner names for as long as the
// store is open. Nobody deletes a key of them meanwhile: the handle of one that has gone would stand for the
// top of the file.
int CStoreOfC::openEach(std::string_view path, bool create, std::shared_ptr<CSharedKey>& key) {
    return undisturbed([&] {
        std::shared_ptr<CSharedKey> above;
        CKeyPath names(path);
        for (std::string_view name; names.next(name);) {
            auto below = std::make_shared<CSharedKey>(m_session);
            const std::string text(name);
            const int result = fillingHandle([&] {
                return m_session.VQRegCreateKey(above ? &above->get() : nullptr, text.c_str(),
                                                below->get(), create ? 1 : 0);
            });
            if (result < 0) {
                return result;
            }
            above = std::move(below);
        }
        key = std::move(above);
        return VQREG_OK;
    });
}

int CStoreOfC::open(std::string_view path, bool create, std::shared_ptr<CSharedKey>& key) {
    const int result = openOrMake(path, create, key);
    if (!isRootGone()) {
        return result;
    }
    key.reset();
    return VQREG_E_INVALID_HANDLE;
}

// What exists is opened whatever it is called: files hold such keys. What is missing is made in one write.
int CStoreOfC::openOrMake(std::string_view path, bool create, std::shared_ptr<CSharedKey>& key) {
    const int found = openEach(path, false, key);
    if (found != REGLIB_E_KEY_NOT_FOUND || !create) {
        return found;
    }
    if (!isStorable(path)) {
        return VQREG_E_NOT_STORABLE;
    }
    const int begun = m_session.VQRegBeginUpdate();
    if (begun < 0) {
        return begun;
    }
    int made = VQREG_E_FAIL;
    try {
        made = openEach(path, true, key);
    } catch (const std::bad_alloc&) {
        // An update ends in any case.
    }
    const int ended = ofChange(m_session.VQRegEndUpdate());
    if (ended < 0) {
        key.reset();
    }
    return made < 0 ? made : ended;
}

int CStoreOfC::beginUpdate() {
    const int result = m_session.VQRegBeginUpdate();
    if (result >= 0) {
        m_updates = store().updateNumber() == m_updateNumber ? m_updates + 1 : 1;
        m_updateNumber = store().updateNumber();
    }
    return result;
}

// Counted before it ends: afterwards another thread may be in one.
int CStoreOfC::endUpdate() {
    return undisturbed([&] {
        m_updates -= m_updates > 0 && store().updateNumber() == m_updateNumber ? 1 : 0;
        return m_session.VQRegEndUpdate();
    });
}

int CStoreOfC::remove(std::string_view path) {
    return undisturbed([&] {
        const int result = removeEmpty(path);
        if (isRootGone()) {
            return VQREG_E_INVALID_HANDLE;
        }
        if (result >= 0) {
            m_keys.drop(path);
        }
        return result;
    });
}

int CStoreOfC::removeEmpty(std::string_view path) {
    const std::size_t slash = path.find_last_of("/\\");
    std::shared_ptr<CSharedKey> above;
    if (slash != std::string_view::npos) {
        const int result = openEach(path.substr(0, slash), false, above);
        if (result < 0) {
            return result;
        }
    }
    const std::string name(path.substr(slash + 1));  // all of a path without a slash
    return ofChange(fillingHandle([&] {
        return m_session.VQRegDeleteKey(above ? above->get() : *m_session.RootKey(), name.c_str());
    }));
}

// Where the lock cannot be waited for, what the operation has returned says so.
bool CStoreOfC::isGone(const CRegKey& key) {
    const CSessionGuard guard(store(), __LINE__);
    return guard.isEntered() && store().isGone(key);
}

bool CStoreOfC::isRootGone() {
    const CRegKey* const root = m_session.RootKey();
    return root && isGone(*root);
}

}  // namespace VQRegLib

using namespace VQRegLib;

vqreg_store* vqreg_open(const char* file, const char* root, int* result) {
    vqreg_store* opened = nullptr;
    const int code = guardedForC([&] {
        if (root && !isStorablePath(1, root)) {
            return VQREG_E_NOT_STORABLE;
        }
        auto store = std::make_shared<CStoreOfC>(file, root);
        if (!store->isOpen()) {
            return VQREG_E_NOT_INITIALIZED;
        }
        opened = new vqreg_store{std::move(store)};
        return VQREG_OK;
    });
    if (result) {
        *result = code;
    }
    return opened;
}

void vqreg_close(vqreg_store* store) {
    if (store) {
        store->m_store->dropUpdates();
    }
    delete store;
}

const char* vqreg_file(const vqreg_store* store) {
    return store ? store->m_store->file() : nullptr;
}

namespace {

// Calls an operation of the store's session.
template <typename Operation>
int callSession(vqreg_store* store, Operation operation) {
    return store ? guardedForC([&] { return (store->m_store->session().*operation)(); })
                 : VQREG_E_FAIL;
}

}  // namespace

int vqreg_begin_update(vqreg_store* store) {
    return store ? guardedForC([&] { return store->m_store->beginUpdate(); }) : VQREG_E_FAIL;
}

int vqreg_end_update(vqreg_store* store) {
    return store ? guardedForC([&] { return ofChange(store->m_store->endUpdate()); })
                 : VQREG_E_FAIL;
}

int vqreg_reload(vqreg_store* store) {
    return callSession(store, &CRegLib::VQRegReload);
}

int vqreg_notify(vqreg_store* store) {
    return callSession(store, &CRegLib::SendRegistryChangeNotification);
}

int vqreg_open_key(vqreg_store* store, const char* path, int create, vqreg_key** key) {
    if (!key) {
        return VQREG_E_FAIL;
    }
    *key = nullptr;
    if (!store) {
        return VQREG_E_FAIL;
    }
    return guardedForC([&] {
        const std::string_view below = CStoreOfC::pathOf(path);
        auto opened = std::make_unique<vqreg_key>(vqreg_key{store->m_store, nullptr});
        const int result =
            below.empty() ? VQREG_OK : store->m_store->open(below, create != 0, opened->m_key);
        *key = result < 0 ? nullptr : opened.release();
        return result;
    });
}

// Only VQRegStore.h knows of it, which says the same.
extern "C" VQREG_EXPORT CRegKey* vqreg_key_handle(vqreg_key* key);

CRegKey* vqreg_key_handle(vqreg_key* key) {
    return key->handle();
}

void vqreg_close_key(vqreg_key* key) {
    delete key;
}

namespace {

// Any look at the key tells whether it is still there; that it has no value without a name does not matter.
int lookForKey(vqreg_store* store, const char* path, bool create) {
    if (!store) {
        return VQREG_E_FAIL;
    }
    return guardedForC([&] {
        return store->m_store->withKey(path, create, [&](CRegKey& key) {
            CRegLib::eDataType type = CRegLib::eNone;
            const int result = store->m_store->session().VQRegQueryValueType(key, "", type);
            const bool isThere = result == VQREG_E_NOT_FOUND || result == VQREG_E_NOT_A_VALUE;
            return isThere ? VQREG_OK : result;
        });
    });
}

}  // namespace

int vqreg_create_key(vqreg_store* store, const char* path) {
    return lookForKey(store, path, true);
}

int vqreg_has_key(vqreg_store* store, const char* path) {
    return lookForKey(store, path, false);
}

int vqreg_delete_key(vqreg_store* store, const char* path) {
    const std::string_view below = CStoreOfC::pathOf(path);
    if (!store || below.empty()) {
        return VQREG_E_FAIL;
    }
    return guardedForC([&] { return store->m_store->remove(below); });
}
