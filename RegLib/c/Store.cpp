// Stores and keys of the C interface.
//
// It is a thin coat over the sessions of C++, with two things that those leave to their callers: a key can
// be named by its path in every call, and what the file could not give back is refused.
#include <cstring>

#include "RegLib/c/CStore.h"
#include "RegLib/c/Guarded.h"
#include "RegLib/store/RegLibAccess.h"
#include "RegLib/store/Store.h"
#include "RegLib/text/Storable.h"

namespace VQRegLib {

const char* CStoreOfC::file() const {
    return CRegLibAccess::store(m_session)->m_pszFileName;
}

std::string CStoreOfC::rootPath() const {
    const std::string header = m_session.RootKey()->GetKeyFullName();
    return header.substr(1, header.size() - 2);
}

std::string_view CStoreOfC::pathOf(const char* given) {
    std::string_view path = given ? given : "";
    path.remove_prefix(path.starts_with('/') ? 1 : 0);
    return path;
}

bool CStoreOfC::isStorable(std::string_view path) const {
    return isStorablePath(std::strlen(m_session.RootKey()->GetKeyFullName()), path);
}

// What exists is opened whatever it is called: files hold such keys.
int CStoreOfC::open(std::string_view path, bool create, std::shared_ptr<CSharedKey>& key) {
    auto made = std::make_shared<CSharedKey>(m_session);
    const std::string text(path);
    int result = m_session.VQRegCreateKey(nullptr, text.c_str(), made->get(), 0);
    if (result == REGLIB_E_KEY_NOT_FOUND && create) {
        if (!isStorable(path)) {
            return VQREG_E_NOT_STORABLE;
        }
        result = m_session.VQRegCreateKey(nullptr, text.c_str(), made->get(), 1);
    }
    if (result >= 0) {
        key = std::move(made);
    }
    return result;
}

}  // namespace VQRegLib

using namespace VQRegLib;

vqreg_store* vqreg_open(const char* file, const char* root, int* result) {
    vqreg_store* opened = nullptr;
    const int code = guardedForC([&] {
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
    return callSession(store, &CRegLib::VQRegBeginUpdate);
}

int vqreg_end_update(vqreg_store* store) {
    return callSession(store, &CRegLib::VQRegEndUpdate);
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

void vqreg_close_key(vqreg_key* key) {
    delete key;
}

// Any look at the key tells whether it is still there; that it has no value without a name does not matter.
int vqreg_create_key(vqreg_store* store, const char* path) {
    if (!store) {
        return VQREG_E_FAIL;
    }
    return guardedForC([&] {
        return store->m_store->withKey(path, true, [&](CRegKey& key) {
            CRegLib::eDataType type = CRegLib::eNone;
            const int result = store->m_store->session().VQRegQueryValueType(key, "", type);
            const bool isThere = result == VQREG_E_NOT_FOUND || result == VQREG_E_NOT_A_VALUE;
            return isThere ? VQREG_OK : result;
        });
    });
}

// From the root key: the path's own handle would not do, since the name is looked up below another one.
int vqreg_delete_key(vqreg_store* store, const char* path) {
    const std::string_view below = CStoreOfC::pathOf(path);
    if (!store || below.empty()) {
        return VQREG_E_FAIL;
    }
    return guardedForC([&] {
        CRegLib& session = store->m_store->session();
        return session.VQRegDeleteKey(*session.RootKey(), std::string(below).c_str());
    });
}
