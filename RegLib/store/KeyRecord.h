// The records behind CRegKey handles.
#ifndef REGLIB_STORE_KEYRECORD_H
#define REGLIB_STORE_KEYRECORD_H

#include <atomic>
#include <cstdint>

#include "VQRegLib.h"

namespace VQRegLib {

class CRegLibImpl;

// What a handle refers to: its key's names and the id under which the store knows it. A record is
// empty when made, registered while a store lists it, and cleared (no owner, id 0, empty names)
// when its last handle or its store goes.
class CRegKeyImpl {
public:
    CRegKeyImpl();
    virtual ~CRegKeyImpl() = 0;
    CRegKeyImpl(const CRegKeyImpl&) = delete;
    CRegKeyImpl& operator=(const CRegKeyImpl&) = delete;

    // Both throw VQException when a name cannot be copied; what was done before stays done.
    virtual void SetKeyInfo(CRegLibImpl* owner, const char* fullName, const char* keyName,
                            unsigned long handleId) = 0;
    virtual void ClearKeyInfo() = 0;

    CRegLibImpl* m_pRegLibImpl;
    // What the owner's table has under the id, for whoever cannot wait for a look into it; null when that
    // has to be asked.
    void* m_node = nullptr;

    // Where the node's line lay when it was last looked at. Only ever a hint of what to ask memory for: the
    // line may have moved, and the memory may be gone.
    std::uintptr_t m_lineHint = 0;

    std::uint32_t m_ulHandleId;
    char* m_pszKeyName;   // owned, from strdup
    char* m_pszFullName;  // owned, from strdup

    // References held by handles. Below zero after a handle has left a record for which it held no
    // reference, as those of a path's inner keys: such a record belongs to its store's table alone.
    std::atomic<std::int32_t> m_lRefCount;
};

// The record of the file store.
class CRegKeyImplFile : public CRegKeyImpl {
public:
    CRegKeyImplFile();
    ~CRegKeyImplFile() override;

    void SetKeyInfo(CRegLibImpl* owner, const char* fullName, const char* keyName,
                    unsigned long handleId) override;
    void ClearKeyInfo() override;
};

// The one way for the library into a handle's record.
class CRegKeyAccess {
public:
    static CRegKeyImpl* record(const CRegKey& key) { return key.m_pImpl; }
    static void put(CRegKey& key, CRegKeyImpl* record) { key.m_pImpl = record; }

    // The id under which the handle is registered; 0 for an empty handle.
    static std::uint32_t id(const CRegKey& key) {
        return key.m_pImpl ? key.m_pImpl->m_ulHandleId : 0;
    }

    // Takes the record out of the handle and drops the reference that the handle held. In Store.cpp, as
    // the end of a record: both tell the owner.
    static void release(CRegKey& key);
};

}  // namespace VQRegLib

#endif  // REGLIB_STORE_KEYRECORD_H
