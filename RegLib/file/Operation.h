// The opening and closing of every key and value operation.
#ifndef REGLIB_FILE_OPERATION_H
#define REGLIB_FILE_OPERATION_H

#include <optional>

#include "RegLib/file/FileStore.h"
#include "portable/NoCancellation.h"

namespace VQRegLib {

// Holds the store's cross-process lock for a scope, if it can be had. The thread is not cancelled before
// it has let go of it.
class CStoreLock {
public:
    enum eHow { eWait, eTry };

    explicit CStoreLock(CRegLibImplFile& store, eUnwinding unwinding = eUnwinding::eRelease,
                        eHow how = eWait);
    // Most operations come to their end without one: it is nothing to be made a part of them.
    [[gnu::noinline]] ~CStoreLock();
    CStoreLock(const CStoreLock&) = delete;
    CStoreLock& operator=(const CStoreLock&) = delete;

    // REGLIB_E_FILE_OPEN when it could not, REGLIB_E_FAIL without memory.
    int result() const { return m_result; }

private:
    const CNoCancellation m_noCancellation;
    CRegLibImplFile& m_store;
    const eUnwinding m_unwinding;
    const int m_exceptions;
    const int m_result;
};

// An operation begins by bringing the tree up to date, which it cannot forget: that is its
// construction, and the code of it comes before all others. It goes on by looking things up. What only
// looks things up is no more than this, and no part of it is in memory.
class CLookUp {
public:
    using CKeyOrValue = CRegLibImplFile::CKeyOrValue;

    explicit CLookUp(CRegLibImplFile& store, eUnwinding unwinding = eUnwinding::eRelease)
        : m_store(store), m_result(store.ImportConfig(unwinding)) {}

    int result() const { return m_result; }

    // Finds the handle's key. REGLIB_E_INVALID_HANDLE, REGLIB_E_NOT_A_KEY.
    [[nodiscard]] int findKey(const CRegKey& key) {
        if (m_result < 0) {
            return m_result;
        }
        m_key = m_store.nodeOf(key);
        if (!m_key) {
            return REGLIB_E_INVALID_HANDLE;
        }
        return m_key->isKey() ? REGLIB_OK : REGLIB_E_NOT_A_KEY;
    }

    // Finds a value of it too; its absence is no failure, a sub key in its place is one:
    // REGLIB_E_NOT_A_VALUE.
    [[nodiscard]] int findValue(const CRegKey& key, const char* name) {
        m_store.expectValuesOf(key);
        const int result = findKey(key);
        if (result < 0) {
            return result;
        }
        m_value = m_store.m_tree->findNamed(*m_key, name);
        return m_value && m_value->isKey() ? REGLIB_E_NOT_A_VALUE : REGLIB_OK;
    }

    // As findValue, and REGLIB_E_NOT_FOUND without the value.
    [[nodiscard]] int findExistingValue(const CRegKey& key, const char* name) {
        const int result = findValue(key, name);
        return result >= 0 && !m_value ? REGLIB_E_NOT_FOUND : result;
    }

    CKeyOrValue* key() const { return m_key; }
    CKeyOrValue* value() const { return m_value; }

protected:
    CRegLibImplFile& m_store;
    int m_result;

private:
    CKeyOrValue* m_key = nullptr;
    CKeyOrValue* m_value = nullptr;
};

// One that finds that it has to change something asks for the lock, and when it gets it now, it looks
// things up once more: the tree may have been brought up to date again.
class COperation : public CLookUp {
public:
    using CLookUp::CLookUp;

    // Runs a piece of the operation that looks things up: without the lock, and where it returns
    // kNeedsLock, again with it. REGLIB_E_FILE_OPEN when the lock cannot be had, REGLIB_E_FAIL
    // without memory, or while the thread has an update through another store on the file.
    template <typename Piece>
    [[nodiscard]] int change(Piece&& piece) {
        int result = piece();
        if (result == kNeedsLock) {
            result = lockForChange();
            if (result >= 0) {
                result = piece();
            }
        }
        return result;
    }
    static constexpr int kNeedsLock = 1;  // no result code is positive
    bool isLocked() const { return m_lock.has_value() || m_store.isUpdating(); }

private:
    [[nodiscard]] int lockForChange();

    std::optional<CStoreLock> m_lock;
};

}  // namespace VQRegLib

#endif  // REGLIB_FILE_OPERATION_H
