// The opening and closing of every key and value operation.
#ifndef REGLIB_FILE_OPERATION_H
#define REGLIB_FILE_OPERATION_H

#include <optional>

#include "RegLib/base/FoldedName.h"
#include "RegLib/file/FileStore.h"
#include "RegLib/file/Node.h"

namespace VQRegLib {

// What becomes of the cross-process lock when an exception passes.
enum class eUnwinding { eRelease, eKeepLock };

// Holds the store's cross-process lock for a scope.
class CStoreLock {
public:
    CStoreLock(CRegLibImplFile& store, eUnwinding unwinding);
    ~CStoreLock();
    CStoreLock(const CStoreLock&) = delete;
    CStoreLock& operator=(const CStoreLock&) = delete;

private:
    CRegLibImplFile& m_store;
    const eUnwinding m_unwinding;
    const int m_nExceptions;
};

// Taking the lock is bringing the tree up to date: an operation cannot forget it. The code of that
// import comes before all others.
class COperation {
public:
    using CKeyOrValue = CRegLibImplFile::CKeyOrValue;

    explicit COperation(CRegLibImplFile& store, eUnwinding unwinding = eUnwinding::eRelease)
        : m_store(store), m_lock(store, unwinding), m_nResult(store.ImportConfig()) {}

    int result() const { return m_nResult; }

    // Finds the handle's key. REGLIB_E_INVALID_HANDLE, REGLIB_E_NOT_A_KEY.
    int findKey(const CRegKey& key);

    // Finds a value of it too; its absence is no failure, a sub key in its place is one:
    // REGLIB_E_NOT_A_VALUE.
    int findValue(const CRegKey& key, const char* name);

    // As findValue, and REGLIB_E_NOT_FOUND without the value.
    int findExistingValue(const CRegKey& key, const char* name);

    CKeyOrValue* key() const { return m_pKey; }
    CKeyOrValue* value() const { return m_pValue; }
    const CFoldedName& foldedName() const { return *m_name; }

private:
    CRegLibImplFile& m_store;
    CStoreLock m_lock;
    int m_nResult;
    CKeyOrValue* m_pKey = nullptr;
    CKeyOrValue* m_pValue = nullptr;
    std::optional<CFoldedName> m_name;
};

}  // namespace VQRegLib

#endif  // REGLIB_FILE_OPERATION_H
