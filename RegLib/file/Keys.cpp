// The file store's key operations.
//
// Opening is walking: each name of a path is looked up below the last, made if that was asked for, and
// given a record and an id of its own, of which the caller keeps the last. After a level has failed the
// rest of the path is still looked up, because the code of a value found further on has always won over
// the code of a key that is missing. Keys that are made on the way are written once, at the end.
//
// Deleting is two operations, a look-up and a removal, and between the two others may act: the key may
// be gone by then, or have got children. That is how it has always been, and each of the two answers for
// itself.
#include "RegLib/base/Guarded.h"
#include "RegLib/base/HashedName.h"
#include "RegLib/base/Terminated.h"
#include "RegLib/file/Operation.h"
#include "RegLib/text/KeyPath.h"
#include "RegLib/trace/Trace.h"
#include "portable/Portable.h"

namespace VQRegLib {

CRegKey* CRegLibImplFile::RootKey() const {
    return m_pRootKey;
}

bool CRegLibImplFile::isGone(const CRegKey& key) const {
    const CKeyOrValue* node = nodeOf(key);
    const bool isThere = node != nullptr;
    while (node && node->m_state != CKeyOrValue::eDisplaced) {
        node = m_tree->parentOf(*node);
    }
    return !isThere || node;
}

// Other stores may keep something per handle; this one does not.
void CRegLibImplFile::deleteKeyHandle(unsigned long /*handleId*/) {}

int CRegLibImplFile::VQRegCreateKey(CRegKey* parent, const char* subKey, CRegKey& key, int create,
                                    int* exists) {
    const int result = VQRegFindKey(parent, subKey, key, create, exists);
    if (result >= 0) {
        CPortable::InterlockedIncrement(&CRegKeyAccess::record(key)->m_lRefCount);
    }
    return result;
}

int CRegLibImplFile::VQRegFindKey(CRegKey* parent, const char* subKey, CRegKey& key, int create,
                                  int* exists) {
    REGLIB_TRACE(eTraceFlow, "CRegLibImplFile::VQRegFindKey (0x%08X) SubKeyName \"%s\"\n",
                 traceId(this), subKey);
    int existed = 1;
    std::string path;  // a copy: the path may be the very name that `key` gives up on the way
    int result = guarded([&] {
        path = subKey;
        return REGLIB_OK;
    });
    if (result >= 0) {
        const CRegKey& start = parent ? *parent : *RootKey();
        result = guarded([&] { return openPath(start, path, key, create, existed); });
        subKey = path.c_str();
    }
    if (exists) {
        *exists = existed;
    }
    REGLIB_TRACE(eTraceFlow,
                 "<<<CRegLibImplFile::VQRegFindKey (0x%08X) SubKeyName \"%s\", exists %d\n",
                 traceId(this), subKey, existed);
    return result;
}

// Each level takes an id, so whether there is one to be made has to be known before the first.
int CRegLibImplFile::openPath(const CRegKey& start, std::string_view path, CRegKey& key, int create,
                              int& exists) {
    COperation operation(*this);
    if (operation.result() < 0) {
        return operation.result();
    }
    return operation.change([&] {
        CKeyOrValue* const found = nodeOf(start);
        CKeyOrValue& node = found ? *found : m_tree->root();
        if (create && !operation.isLocked() && lacksKey(node, path)) {
            return COperation::kNeedsLock;
        }
        return walkPath(&node, path, key, create, exists);
    });
}

bool CRegLibImplFile::lacksKey(const CKeyOrValue& start, std::string_view path) const {
    const CKeyOrValue* node = &start;
    CKeyPath rest(path);
    for (std::string_view name; node && node->isKey() && rest.next(name);) {
        node = m_tree->findChild(*node, name);
    }
    return !node;
}

int CRegLibImplFile::walkPath(CKeyOrValue* node, std::string_view path, CRegKey& key, int create,
                              int& exists) {
    int result = REGLIB_OK;
    bool changed = false;
    const bool wasUnwritten = m_isUnwritten;
    CKeyPath rest(path);
    for (std::string_view name; rest.next(name);) {
        result = guarded([&] {
            CKeyOrValue* child = m_tree->findChild(*node, name);
            if (child && !child->isKey()) {
                return REGLIB_E_NOT_A_KEY;
            }
            // Only now: after a failure the rest of the path is still looked up in the last key
            // reached, and callers know the code of a value found there.
            if (result < 0) {
                return result;
            }
            if (!child) {
                if (!create) {
                    return REGLIB_E_KEY_NOT_FOUND;
                }
                exists = 0;
                child = &m_tree->addKey(*node, name);
                changed = true;
                m_isUnwritten = true;  // where memory runs out, by a code or by an exception
            }
            issueHandle(*child, name, key);
            node = child;
            return REGLIB_OK;
        });
    }
    if (!changed || result >= 0) {
        m_isUnwritten = wasUnwritten;
    }
    return result >= 0 && changed ? commitChange() : result;
}

// Every level of a path gets a record and an id. One that is replaced by the next level had no
// reference yet and stays in the table, as does its id.
void CRegLibImplFile::issueHandle(CKeyOrValue& node, std::string_view name, CRegKey& key) {
    const CTerminated keyName(name);
    const CTerminated fullName(node.line());
    auto record = std::make_unique<CRegKeyImplFile>();
    try {
        setKeyInfo(record.get(), fullName.c_str(), keyName.c_str(), &node, &node.m_ulKeyHandleID);
        CRegKeyAccess::release(key);
    } catch (const VQException&) {
        // The table lists it; no handle ever will.
        record.release()->m_lRefCount.store(-1);
        throw;
    }
    CRegKeyAccess::put(key, record.release());
}

int CRegLibImplFile::VQRegDeleteKey(CRegKey& key, const char* subKey) {
    CRegKey found;
    const int result = VQRegFindKey(&key, subKey, found, 0, nullptr);
    if (result < 0) {
        return result;
    }
    return guarded([&] {
        COperation operation(*this);
        return operation.change([&] {
            const int opened = operation.findKey(found);
            if (opened < 0) {
                return opened;
            }
            if (m_tree->hasChildren(*operation.key())) {
                return REGLIB_E_KEY_NOT_EMPTY;
            }
            if (!operation.isLocked()) {
                return COperation::kNeedsLock;
            }
            deleteNode(*operation.key());
            return commitChange();
        });
    });
}

// Other handles on the key stay registered, and find that its node is gone.
void CRegLibImplFile::deleteNode(CKeyOrValue& node) {
    const std::uint32_t id = node.m_ulKeyHandleID;
    deleteKeyHandle(id);
    // The handle that found the key holds no reference: without an owner its record goes with it.
    if (CRegKeyImpl* const record = m_handles.recordOf(id)) {
        record->m_pRegLibImpl = nullptr;
    }
    m_handles.retire(id);
    m_tree->remove(node);
    freeGoneNodes();
}

// Now and then, so that it costs little each time.
void CRegLibImplFile::freeGoneNodes() {
    constexpr std::size_t kMost = 64;
    if (m_tree->gone() > kMost + m_tree->size() / 8) {
        m_handles.orphan([](const void* node) {
            return static_cast<const CKeyOrValue*>(node)->m_state == CKeyOrValue::eGone;
        });
        m_tree->sweep();
    }
}

int CRegLibImplFile::VQRegEnumKeys(CRegKey& key, int index, std::string& name) {
    return guarded([&] {
        CLookUp found(*this);
        const int result = found.findKey(key);
        if (result < 0) {
            return result;
        }
        const CKeyOrValue* const child = m_tree->childOfKind(*found.key(), true, index);
        if (!child) {
            return REGLIB_E_NO_MORE_ITEMS;
        }
        name = m_tree->nameOf(*child);
        return REGLIB_OK;
    });
}

}  // namespace VQRegLib
