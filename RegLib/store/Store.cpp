// What every store does, whatever its backing.
//
// Registering a record (setKeyInfo) looks odd because its failures are part of the interface. The record
// goes into the table under the next id first; then it takes its names, which needs memory and may throw;
// only then does the id count as given. After a failure the entry stays and the id is the next one again,
// so a later registration finds a record in its place, and frees it if no handle refers to it.
#include "RegLib/store/Store.h"

#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "RegLib/base/CritSecGuard.h"
#include "RegLib/base/Guarded.h"
#include "RegLib/text/KeyPath.h"
#include "RegLib/trace/Trace.h"
#include "RegLib/watch/Watcher.h"
#include "portable/Portable.h"

namespace VQRegLib {

CRegLibImpl::CRegLibImpl(const char* name, const char* key, CRegLib::LOCATION /*location*/,
                         int* result)
    : m_critSec("", 1),
      m_lRefCount(0),
      m_nResult(0),
      m_pszFileName(nullptr),
      m_pRootKey(nullptr),
      m_pRootKeyImpl(nullptr),
      m_pWatcherThread(nullptr),
      m_watcherLock("", 1) {
    CRegLibTrace::createInstance();
    REGLIB_TRACE(eTraceLife, "CRegLibImpl::CRegLibImpl (0x%08X) - %s, %s\n", traceId(this),
                 traceText(name), traceText(key));
    if (result) {
        *result = 0;
    }
}

CRegLibImpl::~CRegLibImpl() {
    REGLIB_TRACE(eTraceLife, "CRegLibImpl::~CRegLibImpl (0x%08X)\n", traceId(this));
    clearAllRecords(false);
    destroyLateKeys();
}

void CRegLibImpl::setKeyInfo(CRegKey* key, const char* fullName, const char* keyName, void* node,
                             std::uint32_t* handleId) {
    setKeyInfo(CRegKeyAccess::record(*key), fullName, keyName, node, handleId);
}

void CRegLibImpl::setKeyInfo(CRegKeyImpl* record, const char* fullName, const char* keyName,
                             void* node, std::uint32_t* handleId) {
    const std::uint32_t id = m_handles.nextId();
    record->m_node = nullptr;
    CRegKeyImpl* const replaced = m_handles.enroll(node, record);
    if (replaced && replaced != record && replaced->m_lRefCount.load() < 0) {
        // Its registration had failed and no handle reaches it.
        replaced->m_pRegLibImpl = nullptr;
        delete replaced;
    }
    try {
        record->SetKeyInfo(this, fullName, keyName, id);
    } catch (const VQException&) {
        m_handles.clearPendingNode();
        throw;
    }
    record->m_node = node;
    if (handleId) {
        *handleId = id;
    }
    m_handles.advance();
}

int CRegLibImpl::VQRegBeginUpdate() {
    return REGLIB_E_FAIL;
}

int CRegLibImpl::VQRegEndUpdate() {
    return REGLIB_E_FAIL;
}

bool CRegLibImpl::isUpdating() const {
    return false;
}

bool CRegLibImpl::isGone(const CRegKey& /*key*/) const {
    return false;
}

bool CRegLibImpl::isUpdatedElsewhere() const {
    return false;
}

std::atomic<int> CRegLibImpl::m_openUpdates{0};

void CRegLibImpl::dropInheritedUpdate() {}

int CRegLibImpl::VQRegReload() {
    return REGLIB_E_FAIL;
}

std::uint32_t CRegLibImpl::updateNumber() const {
    return 0;
}

void CRegLibImpl::dropUpdate() {}

// The watcher ends without m_watcherLock: one of its handlers may be waiting for that. Until then
// it stays known, so that the handler may remove others.
void CRegLibImpl::DeleteRegWatcherThread() {
    CRegWatcherThread* watcher = nullptr;
    {
        const CCritSecGuard guard(m_watcherLock, __LINE__);
        watcher = m_pWatcherThread;
        m_hasWatcherEnded = true;
    }
    if (watcher) {
        CRegWatcherThread::end(watcher);
        const CCritSecGuard guard(m_watcherLock, __LINE__);
        m_pWatcherThread = nullptr;
    }
}

bool CRegLibImpl::hasWatcher() {
    const CCritSecGuard guard(m_watcherLock, __LINE__);
    return m_pWatcherThread != nullptr;
}

void CRegLibImpl::clearKeyInfo(CRegKeyImpl* record) {
    const std::uint32_t id = record->m_ulHandleId;
    deleteKeyHandle(id);
    m_handles.retire(id);
    m_handles.retirePending(record);
    record->ClearKeyInfo();
}

// A record only knows that it has an owner; what that means to the owner is for this file.
CRegKeyImpl::~CRegKeyImpl() {
    REGLIB_TRACE(eTraceFlow, "CRegKeyImpl::~CRegKeyImpl 0x%08X\n", traceId(this));
    std::free(m_pszKeyName);
    std::free(m_pszFullName);
    if (m_pRegLibImpl) {
        m_pRegLibImpl->deleteKeyHandle(m_ulHandleId);
    }
}

void CRegKeyAccess::release(CRegKey& key) {
    CRegKeyImpl* const record = std::exchange(key.m_pImpl, nullptr);
    if (!record) {
        return;
    }
    const std::int32_t count = CPortable::InterlockedDecrement(&record->m_lRefCount);
    if (count > 0) {
        return;  // other handles use it
    }
    CRegLibImpl* const owner = record->m_pRegLibImpl;
    if (count < 0 && owner) {
        return;  // it stays in the store's table
    }
    const std::unique_ptr<CRegKeyImpl> freed(record);
    if (count == 0 && owner) {
        owner->clearKeyInfo(record);
    }
}

void CRegLibImpl::clearAllRecords(bool callHook) {
    std::uint32_t id = 0;
    CRegKeyImpl* record = nullptr;
    while (m_handles.findFirst(id, record)) {
        if (callHook) {
            deleteKeyHandle(id);
        }
        m_handles.retire(id);
        try {
            record->ClearKeyInfo();
        } catch (const VQException& exception) {
            REGLIB_TRACE(eTraceAlways, "(Error) CRegLibImpl::~CRegLibImpl (0x%08X), exception %s\n",
                         traceId(this), exception.m_szText);
            record->m_ulHandleId = 0;
        }
        if (record->m_lRefCount.load() < 0) {
            delete record;
        }
    }
}

std::string CRegLibImpl::tolower(const std::string& text) {
    const std::unique_ptr<char, decltype(&std::free)> copy(strdup(text.c_str()), &std::free);
    return copy ? std::string(CPortable::strlwr(copy.get())) : text;
}

int CRegLibImpl::VQRegCreateKeyVect(CRegKey* parent, const char* path, std::vector<CRegKey*>& keys,
                                    std::vector<std::string>& names, int create) {
    // The result is 0 even for a path that does not exist: callers look at the vectors.
    (void)guarded([&] {
        if (!path) {
            return REGLIB_E_FAIL;
        }
        std::vector<std::string> localNames;
        CKeyPath rest(path);
        for (std::string_view name; rest.next(name);) {
            localNames.emplace_back(name);
        }
        std::vector<std::unique_ptr<CRegKey>> localKeys;
        const int result = openKeys(parent ? parent : RootKey(), localNames, create, localKeys);
        if (result >= 0) {
            std::vector<CRegKey*> handedOut;
            handedOut.reserve(localKeys.size());
            for (auto& key : localKeys) {
                handedOut.push_back(key.release());
            }
            keys = std::move(handedOut);
            names = std::move(localNames);
        }
        return result;
    });
    return REGLIB_OK;
}

int CRegLibImpl::openKeys(CRegKey* parent, std::vector<std::string>& names, int create,
                          std::vector<std::unique_ptr<CRegKey>>& keys) {
    for (std::string& name : names) {
        keys.push_back(std::make_unique<CRegKey>());
        int exists = 0;
        const int result = VQRegCreateKey(parent, name.c_str(), *keys.back(), create, &exists);
        if (result < 0) {
            return result;
        }
        findStoredSpelling(parent, name);
        parent = keys.back().get();
    }
    return REGLIB_OK;
}

// When the enumeration ends without a match, the last name it returned is taken: callers rely on
// the vectors as they have always been.
void CRegLibImpl::findStoredSpelling(CRegKey* parent, std::string& name) {
    const std::string wanted = tolower(name);
    std::string candidate = name;
    for (int index = 0; VQRegEnumKeys(*parent, index, candidate) >= 0; ++index) {
        if (tolower(candidate) == wanted) {
            break;
        }
    }
    name = std::move(candidate);
}

void CRegLibImpl::destroyLater(std::vector<CRegKey*>& keys) {
    const CCritSecGuard guard(m_lateKeysLock, __LINE__);
    m_lateKeys.insert(m_lateKeys.end(), keys.begin(), keys.end());
    keys.clear();
}

void CRegLibImpl::destroyLateKeys() {
    std::vector<CRegKey*> keys;
    {
        const CCritSecGuard guard(m_lateKeysLock, __LINE__);
        keys.swap(m_lateKeys);
    }
    for (CRegKey* const key : keys) {
        delete key;
    }
}

int CRegLibImpl::VQRegDestroyKeyVect(std::vector<CRegKey*>& keys) {
    destroyLateKeys();
    for (CRegKey* const key : keys) {
        delete key;
    }
    keys.clear();
    return REGLIB_OK;
}

}  // namespace VQRegLib
