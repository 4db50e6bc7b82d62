// CRegLib: a session. Checks, traces, serialises and delegates.
//
// Most operations are three things: the entry line, the checks, and one call of the store under the store's
// session lock. delegate() is all of that but the lines. The checks are as they have always been and
// differ from one operation to the next in what they reset when they fail; that is in the operations.
//
// The session lock belongs to the store, not to the session: two sessions of one path and root key share
// a store, and with it the lock. It may be entered again, which updates do. When a VQException passes it
// stays entered, on purpose: what it interrupted may be half done, and a program that catches it and goes
// on would go on with that. All others that use this store then wait, which is found in a minute with a
// debugger; a damaged tree would be found in a year.
//
// Registering handlers takes no session lock: it waits for a round, and a handler of that round may be
// waiting for the session lock.
#include <iterator>
#include <string>

#include "RegLib/base/Guarded.h"
#include "RegLib/instance/Directory.h"
#include "RegLib/instance/Notifier.h"
#include "RegLib/session/SessionLock.h"
#include "RegLib/text/KeyPath.h"
#include "RegLib/trace/Trace.h"
#include "VQRegLib.h"
#include "portable/NoCancellation.h"
#include "portable/ThreadAnnotations.h"

namespace VQRegLib {

namespace {

// Calls one operation of the store under its session lock, if there is a store and the caller gave
// every text and pointer that the operation needs. No guard holds the lock: when a VQException
// passes, it stays taken: what the exception interrupted is half done, and other threads that hang
// are better than threads that go on with it. Nothing here keeps a cancellation away either: where an
// operation comes to a system call it does so itself, and most come to none.
template <typename Operation>
[[nodiscard]] int delegate(CRegLibImpl* store, bool argumentsGiven, int location,
                           Operation&& operation) {
    if (!store) {
        return REGLIB_E_NOT_INITIALIZED;
    }
    if (!argumentsGiven || !CRegLibImplDirectory::isUsable()) {
        return REGLIB_E_FAIL;
    }
    if (!enterSession(*store, location)) [[unlikely]] {
        return REGLIB_E_FAIL;
    }
    const int result = guarded([&] { return operation(*store); });
    store->m_critSec.leave(location);
    return result;
}

// The same for what is called a million times a second: where nothing stands in the way. Otherwise
// `inFull` is called, a function that stands apart and has the operation once more: what is seldom needed
// costs a query nothing then, not even a register.
template <typename Operation, typename InFull>
[[nodiscard, gnu::always_inline]] inline int delegateAtOnce(CRegLibImpl* store, bool argumentsGiven,
                                                            int location, Operation&& operation,
                                                            InFull&& inFull) {
    const bool isAtOnce = store && argumentsGiven && CRegLibImplDirectory::isUsable() &&
                          tryEnterSessionAtOnce(*store, location);
    if (!isAtOnce) [[unlikely]] {
        return inFull();
    }
    const int result = guarded([&] { return operation(*store); });
    store->m_critSec.leaveEntered(location);
    return result;
}

// From the begin of an update to its end the session lock stays entered, by one entering that the end
// leaves: no function has both.
void enterUntilEndOfUpdate(CRegLibImpl& store, int location) NO_THREAD_SAFETY_ANALYSIS {
    store.m_critSec.enter(location);
}

void leaveAtEndOfUpdate(CRegLibImpl& store, int location) NO_THREAD_SAFETY_ANALYSIS {
    store.m_critSec.leave(location);
}

// For a thread for whose update the lock's holder may be waiting: there may be many keys, and each would
// wait in vain.
int destroyWithoutWaiting(CRegLibImpl& store, std::vector<CRegKey*>& keys) {
    if (!store.m_critSec.tryEnter(__LINE__)) {
        return guarded([&] {
            store.destroyLater(keys);
            return REGLIB_OK;
        });
    }
    const int result = guarded([&] { return store.VQRegDestroyKeyVect(keys); });
    store.m_critSec.leave(__LINE__);
    return result;
}

// The name of a key as a trace line shows it.
const char* fullName(const CRegKey& key) {
    return traceText(key.GetKeyFullName());
}

[[gnu::noinline]] int queryInFull(const CRegLib& session, CRegLibImpl* impl, CRegKey& key,
                                  const char* valueName, CRegLib::eDataType& type,
                                  unsigned char* buffer, unsigned long* size) {
    REGLIB_TRACE(eTraceFlow, "CRegLib::VQRegQueryValue (0x%08X), ValueName \"%s\"\n",
                 traceId(&session), traceText(valueName));
    const bool given = valueName && size;
    if (impl && !given) {
        type = CRegLib::eNone;
    }
    return delegate(impl, given, __LINE__, [&](CRegLibImpl& store) {
        return store.VQRegQueryValue(key, valueName, type, buffer, size);
    });
}

[[gnu::noinline]] void traceNumberSet(const CRegLibImpl& store, const CRegKey& key,
                                      const char* valueName, std::uint32_t value) {
    REGLIB_TRACE(eTraceChange,
                 "CRegLibImpl::VQRegSetValue (0x%08X), setting value %s%s%s to 0x%08X\n",
                 traceId(&store), fullName(key), "/", valueName, value);
}

int setNumber(CRegLibImpl& store, CRegKey& key, const char* valueName, unsigned long value) {
    int changed = 0;
    const int result = store.VQRegSetValue(key, valueName, value, &changed);
    if (changed != 0) [[unlikely]] {
        traceNumberSet(store, key, valueName, static_cast<std::uint32_t>(value));
    }
    return result;
}

[[gnu::noinline]] int setNumberInFull(const CRegLib& session, CRegLibImpl* impl, CRegKey& key,
                                      const char* valueName, unsigned long value) {
    REGLIB_TRACE(eTraceFlow, "CRegLib::VQRegSetValue (0x%08X), ValueName \"%s\"\n",
                 traceId(&session), traceText(valueName));
    return delegate(impl, valueName, __LINE__,
                    [&](CRegLibImpl& store) { return setNumber(store, key, valueName, value); });
}

[[gnu::noinline]] int enumValuesInFull(CRegLibImpl* impl, CRegKey& key, int index,
                                       std::string& name, CRegLib::eDataType& type) {
    return delegate(impl, true, __LINE__, [&](CRegLibImpl& store) {
        return store.VQRegEnumValues(key, index, name, type);
    });
}

}  // namespace

CRegLib::CRegLib(const char* name, const char* key, LOCATION location, int* result)
    : m_pImpl(nullptr) {
    m_pImpl = get_reglibImplDirectory()->acquireRegLibImpl(name, key, location, result);
}

CRegLib::~CRegLib() {
    if (!m_pImpl) {
        return;
    }
    if (CRegLibImplDirectory* const directory = get_reglibImplDirectory()) {
        directory->releaseRegLibImpl(m_pImpl);
    }
}

int CRegLib::VQRegCreateKey(CRegKey* parent, const char* subKey, CRegKey& key, int create) {
    REGLIB_TRACE(eTraceFlow, "CRegLib::VQRegCreateKey (0x%08X), SubKeyName \"%s\"\n", traceId(this),
                 traceText(subKey));
    return delegate(m_pImpl, subKey, __LINE__, [&](CRegLibImpl& store) {
        // Copied for the line below: the text may belong to `key`, which is about to be filled
        // anew.
        const bool traced = create != 0 && traceFor(eTraceChange) != nullptr;
        const std::string name = traced ? subKey : "";
        int exists = 0;
        const int result = store.VQRegCreateKey(parent, subKey, key, create, &exists);
        if (exists == 0 && traced) {
            REGLIB_TRACE(eTraceChange,
                         "CRegLibImpl::VQRegCreateKey (0x%08X), creating new key %s%s%s\n",
                         traceId(&store), fullName(key), "/", name.c_str());
        }
        return result;
    });
}

int CRegLib::VQRegDeleteKey(CRegKey& key, const char* subKey) {
    REGLIB_TRACE(eTraceFlow, "CRegLib::VQRegDeleteKey (0x%08X), SubKeyName \"%s\"\n", traceId(this),
                 traceText(subKey));
    return delegate(m_pImpl, subKey, __LINE__, [&](CRegLibImpl& store) {
        const int result = store.VQRegDeleteKey(key, subKey);
        REGLIB_TRACE(eTraceChange, "CRegLibImpl::VQRegDeleteKey (0x%08X), deleting key %s%s%s\n",
                     traceId(&store), fullName(key), "/", subKey);
        return result;
    });
}

int CRegLib::VQRegDeleteValue(CRegKey& key, const char* valueName) {
    REGLIB_TRACE(eTraceFlow, "CRegLib::VQRegDeleteValue (0x%08X), ValueName \"%s\"\n",
                 traceId(this), traceText(valueName));
    return delegate(m_pImpl, valueName, __LINE__, [&](CRegLibImpl& store) {
        const int result = store.VQRegDeleteValue(key, valueName);
        REGLIB_TRACE(eTraceChange,
                     "CRegLibImpl::VQRegDeleteValue (0x%08X), deleting value %s%s%s\n",
                     traceId(&store), fullName(key), "/", valueName);
        return result;
    });
}

int CRegLib::VQRegSetValue(CRegKey& key, const char* valueName, unsigned long value) {
    return delegateAtOnce(
        m_pImpl, valueName && !traceFor(eTraceFlow), __LINE__,
        [&](CRegLibImpl& store) { return setNumber(store, key, valueName, value); },
        [&] { return setNumberInFull(*this, m_pImpl, key, valueName, value); });
}

int CRegLib::VQRegSetValue(CRegKey& key, const char* valueName, const char* value) {
    REGLIB_TRACE(eTraceFlow, "CRegLib::VQRegSetValue (0x%08X), ValueName \"%s\"\n", traceId(this),
                 traceText(valueName));
    return delegate(m_pImpl, valueName && value, __LINE__, [&](CRegLibImpl& store) {
        int changed = 0;
        const int result = store.VQRegSetValue(key, valueName, value, &changed);
        if (changed != 0) {
            REGLIB_TRACE(eTraceChange,
                         "CRegLibImpl::VQRegSetValue (0x%08X), setting value %s%s%s to %s\n",
                         traceId(&store), fullName(key), "/", valueName, value);
        }
        return result;
    });
}

int CRegLib::VQRegSetValue(CRegKey& key, const char* valueName, const unsigned char* data,
                           unsigned long size) {
    REGLIB_TRACE(eTraceFlow, "CRegLib::VQRegSetValue (0x%08X), ValueName \"%s\"\n", traceId(this),
                 traceText(valueName));
    const bool given = valueName && (data || size == 0);
    return delegate(m_pImpl, given, __LINE__, [&](CRegLibImpl& store) {
        int changed = 0;
        const int result = store.VQRegSetValue(key, valueName, data, size, &changed);
        if (changed != 0) {
            REGLIB_TRACE(eTraceChange,
                         "CRegLibImpl::VQRegSetValue (0x%08X), setting binary value %s%s%s\n",
                         traceId(&store), fullName(key), "/", valueName);
        }
        return result;
    });
}

int CRegLib::VQRegQueryValueType(CRegKey& key, const char* valueName, eDataType& type) {
    REGLIB_TRACE(eTraceFlow, "CRegLib::VQRegQueryValueType (0x%08X), ValueName \"%s\"\n",
                 traceId(this), traceText(valueName));
    if (m_pImpl && !valueName) {
        type = eNone;
    }
    return delegate(m_pImpl, valueName, __LINE__, [&](CRegLibImpl& store) {
        return store.VQRegQueryValueType(key, valueName, type);
    });
}

int CRegLib::VQRegQueryValue(CRegKey& key, const char* valueName, eDataType& type,
                             unsigned char* buffer, unsigned long* size) {
    return delegateAtOnce(
        m_pImpl, valueName && size && !traceFor(eTraceFlow), __LINE__,
        [&](CRegLibImpl& store) {
            return store.VQRegQueryValue(key, valueName, type, buffer, size);
        },
        [&] { return queryInFull(*this, m_pImpl, key, valueName, type, buffer, size); });
}

int CRegLib::VQRegEnumKeys(CRegKey& key, int index, std::string& name) {
    return delegate(m_pImpl, true, __LINE__,
                    [&](CRegLibImpl& store) { return store.VQRegEnumKeys(key, index, name); });
}

int CRegLib::VQRegEnumValues(CRegKey& key, int index, std::string& name, eDataType& type) {
    return delegateAtOnce(
        m_pImpl, true, __LINE__,
        [&](CRegLibImpl& store) { return store.VQRegEnumValues(key, index, name, type); },
        [&] { return enumValuesInFull(m_pImpl, key, index, name, type); });
}

CRegKey* CRegLib::RootKey() const {
    CRegKey* root = nullptr;
    // Null says it as well.
    (void)delegate(m_pImpl, true, __LINE__, [&](CRegLibImpl& store) {
        root = store.RootKey();
        return REGLIB_OK;
    });
    return root;
}

void CRegLib::dump() {
    // Nothing is printed then.
    (void)delegate(m_pImpl, true, __LINE__, [](CRegLibImpl& store) {
        const CNoCancellation noCancellation;
        store.dump();
        return REGLIB_OK;
    });
}

int CRegLib::ParseKeyPath(const char* path, std::vector<std::string>& names) {
    return delegate(m_pImpl, path, __LINE__, [&](CRegLibImpl&) {
        std::vector<std::string> found;
        CKeyPath rest(path);
        for (std::string_view name; rest.next(name);) {
            found.emplace_back(name);
        }
        names.insert(names.end(), std::make_move_iterator(found.begin()),
                     std::make_move_iterator(found.end()));
        return names.empty() ? REGLIB_E_INVALID_HANDLE : REGLIB_OK;
    });
}

int CRegLib::VQRegCreateKeyVect(CRegKey* parent, const char* path, std::vector<CRegKey*>& keys,
                                std::vector<std::string>& names, int create) {
    return delegate(m_pImpl, true, __LINE__, [&](CRegLibImpl& store) {
        return store.VQRegCreateKeyVect(parent, path, keys, names, create);
    });
}

int CRegLib::VQRegDestroyKeyVect(std::vector<CRegKey*>& keys) {
    if (m_pImpl && CRegLibImplDirectory::isUsable() && isInUpdateElsewhere(*m_pImpl)) {
        return destroyWithoutWaiting(*m_pImpl, keys);
    }
    return delegate(m_pImpl, true, __LINE__,
                    [&](CRegLibImpl& store) { return store.VQRegDestroyKeyVect(keys); });
}

void CRegLib::SetRegistryChangeHandler(CRegistryChangeHandler* handler) {
    if (m_pImpl && CRegLibImplDirectory::isUsable()) {
        const CNoCancellation noCancellation;
        m_pImpl->SetRegistryChangeHandler(handler);
    }
}

void CRegLib::ClrRegistryChangeHandler(CRegistryChangeHandler* handler) {
    if (m_pImpl && CRegLibImplDirectory::isUsable()) {
        const CNoCancellation noCancellation;
        m_pImpl->ClrRegistryChangeHandler(handler);
    }
}

int CRegLib::VQRegBeginUpdate() {
    REGLIB_TRACE(eTraceFlow, "CRegLib::VQRegBeginUpdate (0x%08X)\n", traceId(this));
    return delegate(m_pImpl, true, __LINE__, [](CRegLibImpl& store) {
        const int result = store.VQRegBeginUpdate();
        if (result >= 0) {
            enterUntilEndOfUpdate(store, __LINE__);
        }
        return result;
    });
}

int CRegLib::VQRegEndUpdate() {
    REGLIB_TRACE(eTraceFlow, "CRegLib::VQRegEndUpdate (0x%08X)\n", traceId(this));
    return delegate(m_pImpl, true, __LINE__, [](CRegLibImpl& store) {
        const CNoCancellation noCancellation;
        if (!store.isUpdating()) {
            return REGLIB_E_FAIL;
        }
        const int result = store.VQRegEndUpdate();
        leaveAtEndOfUpdate(store, __LINE__);
        return result;
    });
}

int CRegLib::VQRegReload() {
    REGLIB_TRACE(eTraceFlow, "CRegLib::VQRegReload (0x%08X)\n", traceId(this));
    return delegate(m_pImpl, true, __LINE__,
                    [](CRegLibImpl& store) { return store.VQRegReload(); });
}

int CRegLib::SendRegistryChangeNotification() {
    if (!m_pImpl) {
        return REGLIB_OK;
    }
    return delegate(m_pImpl, true, __LINE__, [](CRegLibImpl&) {
        const CNoCancellation noCancellation;
        releaseNotificationSemaphores();
        return REGLIB_OK;
    });
}

}  // namespace VQRegLib
