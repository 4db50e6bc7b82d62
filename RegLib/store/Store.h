// The abstract store: what a session calls, and what every store needs whatever its backing.
#ifndef REGLIB_STORE_STORE_H
#define REGLIB_STORE_STORE_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "RegLib/store/HandleTable.h"
#include "RegLib/store/KeyRecord.h"
#include "VQRegLib.h"
#include "portable/CritSec.h"
#include "portable/ThreadAnnotations.h"

namespace VQRegLib {

class CRegWatcherThread;

class CRegLibImpl {
public:
    // `result`, when not null, receives 0. `location` is of no effect.
    CRegLibImpl(const char* name, const char* key, CRegLib::LOCATION location, int* result);

    // The derived store has freed what it owns; records still in the table are cleared here, which
    // is the case only when its constructor has failed.
    virtual ~CRegLibImpl() = 0;
    CRegLibImpl(const CRegLibImpl&) = delete;
    CRegLibImpl& operator=(const CRegLibImpl&) = delete;

    // The store's operations, in the order of their slots. The public header describes them; they
    // are called with m_critSec entered, except the first two.
    virtual void SetRegistryChangeHandler(CRegistryChangeHandler* handler) = 0;
    virtual void ClrRegistryChangeHandler(CRegistryChangeHandler* handler) = 0;
    virtual CRegKey* RootKey() const = 0;

    // `exists`, when not null, receives 0 when the store set out to create a key, else 1.
    [[nodiscard]] virtual int VQRegCreateKey(CRegKey* parent, const char* subKey, CRegKey& key,
                                             int create, int* exists) = 0;
    [[nodiscard]] virtual int VQRegDeleteKey(CRegKey& key, const char* subKey) = 0;
    [[nodiscard]] virtual int VQRegDeleteValue(CRegKey& key, const char* valueName) = 0;

    // `changed`, when not null, receives 1 when the stored line has changed, else 0.
    [[nodiscard]] virtual int VQRegSetValue(CRegKey& key, const char* valueName,
                                            unsigned long value, int* changed) = 0;
    [[nodiscard]] virtual int VQRegSetValue(CRegKey& key, const char* valueName, const char* value,
                                            int* changed) = 0;
    [[nodiscard]] virtual int VQRegSetValue(CRegKey& key, const char* valueName,
                                            const unsigned char* data, unsigned long size,
                                            int* changed) = 0;
    [[nodiscard]] virtual int VQRegQueryValueType(CRegKey& key, const char* valueName,
                                                  CRegLib::eDataType& type) = 0;
    [[nodiscard]] virtual int VQRegQueryValue(CRegKey& key, const char* valueName,
                                              CRegLib::eDataType& type, unsigned char* buffer,
                                              unsigned long* size) = 0;
    [[nodiscard]] virtual int VQRegEnumKeys(CRegKey& key, int index, std::string& name) = 0;
    [[nodiscard]] virtual int VQRegEnumValues(CRegKey& key, int index, std::string& name,
                                              CRegLib::eDataType& type) = 0;
    virtual void dump() = 0;

    // Registers a record under the next id for a node, and tells the id to `handleId` when that is
    // not null. Throws VQException when the record cannot take its names: its entries stay, and the
    // id is used again.
    virtual void setKeyInfo(CRegKey* key, const char* fullName, const char* keyName, void* node,
                            std::uint32_t* handleId);
    virtual void setKeyInfo(CRegKeyImpl* record, const char* fullName, const char* keyName,
                            void* node, std::uint32_t* handleId);

    // Called whenever an id is about to be unregistered.
    virtual void deleteKeyHandle(unsigned long handleId) = 0;

    // Between the two the calling thread holds the store's cross-process lock, and the store's file
    // is written once, at the end of the outermost update. The caller holds m_critSec all the time.
    // A store that cannot do this refuses to begin.
    [[nodiscard]] virtual int VQRegBeginUpdate();
    [[nodiscard]] virtual int VQRegEndUpdate();
    virtual bool isUpdating() const;

    // The calling thread has an update on the store's backing through another store.
    virtual bool isUpdatedElsewhere() const;

    // Updates that are open in this process.
    static std::atomic<int> m_openUpdates;

    // In a child of fork: the update that its parent had begun is not the child's.
    virtual void dropInheritedUpdate();

    // Whether the key of a handle is gone, or out of reach: a value has its name, or that of one above it.
    virtual bool isGone(const CRegKey& key) const;

    // Makes every process read the store's file again at its next operation.
    [[nodiscard]] virtual int VQRegReload();

    // Tells the outermost update from those before and after it; 0 without one.
    virtual std::uint32_t updateNumber() const;

    // Ends an update as VQRegEndUpdate, but that nothing is written: what the outermost one has changed is
    // out of the tree at the next operation, and with it what could not be written before.
    virtual void dropUpdate();

    // Unregisters a record and clears it; the caller deletes it. Throws VQException when there is
    // no memory for its empty names.
    void clearKeyInfo(CRegKeyImpl* record);

    // A text in lower case, up to its first NUL.
    std::string tolower(const std::string& text);

    // Both always return 0; the public header says what becomes of the vectors.
    [[nodiscard]] int VQRegCreateKeyVect(CRegKey* parent, const char* path,
                                         std::vector<CRegKey*>& keys,
                                         std::vector<std::string>& names, int create);
    [[nodiscard]] int VQRegDestroyKeyVect(std::vector<CRegKey*>& keys);

    // The same for who cannot have m_critSec: they go with the next ones, or with the store.
    void destroyLater(std::vector<CRegKey*>& keys);

    // Ends the watcher, if any.
    void DeleteRegWatcherThread();
    bool hasWatcher();

    CPCritSec m_critSec;          // around every operation of a session
    std::int32_t m_lRefCount;     // sessions; counted by the directory, under its lock
    std::int32_t m_nResult;       // told to sessions that join; stays 0
    char* m_pszFileName;          // owned, from strdup, by the derived store
    CRegKey* m_pRootKey;          // owned by the derived store
    CRegKeyImpl* m_pRootKeyImpl;  // the root key's record
    std::string m_strTuple;       // under which the directory lists the store
    CHandleTable m_handles;       // guarded by m_critSec, except that handles leave it unguarded

    // Starts the thread that wakes the watchers of listed stores. Set by the directory, which has that
    // thread, when it lists the store, and not changed afterwards; null in a store that is not listed.
    // May throw VQException.
    void (*m_startNotifier)() = nullptr;

    CRegWatcherThread* m_pWatcherThread GUARDED_BY(m_watcherLock);
    CPCritSec m_watcherLock;
    bool m_hasWatcherEnded GUARDED_BY(m_watcherLock) = false;  // the store is being destroyed

    CPCritSec m_lateKeysLock{"", 1};
    std::vector<CRegKey*> m_lateKeys GUARDED_BY(m_lateKeysLock);  // owned: to be destroyed

protected:
    // Clears every record in the table, and deletes those that no handle reaches.
    void clearAllRecords(bool callHook);

private:
    [[nodiscard]] int openKeys(CRegKey* parent, std::vector<std::string>& names, int create,
                               std::vector<std::unique_ptr<CRegKey>>& keys);
    void findStoredSpelling(CRegKey* parent, std::string& name);
    void destroyLateKeys();
};

}  // namespace VQRegLib

#endif  // REGLIB_STORE_STORE_H
