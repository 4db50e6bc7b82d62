// Updates: several changes that become one write of the file.
#include <utility>

#include "RegLib/base/Guarded.h"
#include "RegLib/file/Node.h"
#include "RegLib/file/Operation.h"

namespace VQRegLib {

// Both locks stay taken until the end of the update; the session lock is the caller's.
int CRegLibImplFile::VQRegBeginUpdate() {
    return guarded([this] {
        if (isUpdatedElsewhere()) {
            return REGLIB_E_FAIL;
        }
        const CStoreLock lock(*this);
        const int result = lock.result() < 0 ? lock.result() : ImportConfig();
        if (result < 0) {
            return result;
        }
        if (m_isReadCutShort) {
            return REGLIB_E_FILE_OPEN;  // its end could write nothing
        }
        const int kept = Lock();  // once more, and kept
        if (kept >= 0 && m_nUpdateDepth++ == 0) {
            ++m_openUpdates;
            m_shared.noteHolding();
        }
        return kept;
    });
}

int CRegLibImplFile::VQRegEndUpdate() {
    if (m_nUpdateDepth == 0) {
        return REGLIB_E_FAIL;
    }
    m_openUpdates -= --m_nUpdateDepth == 0 ? 1 : 0;
    const int result = guarded([this] {
        const bool write = m_nUpdateDepth == 0 && std::exchange(m_bUpdatePending, false);
        return write ? ExportConfig() : REGLIB_OK;
    });
    Unlock();
    return result;
}

// A new stamp is all that it takes. In an update it would make the next operation read the file over
// the changes that are still to be written.
int CRegLibImplFile::VQRegReload() {
    return guarded([this] {
        if (isUpdating() || isUpdatedElsewhere()) {
            return REGLIB_E_FAIL;
        }
        const CStoreLock lock(*this);
        if (lock.result() < 0) {
            return lock.result();
        }
        m_shared.renew();
        return REGLIB_OK;
    });
}

// The thread holds the lock through another store of this process, which has an update on the same
// file. What this store wrote now would be overwritten by that update's end, and would bring half of
// it to light before.
bool CRegLibImplFile::isUpdatedElsewhere() const {
    return m_shared.isHeldThroughAnother();
}

// What a change answers that would change nothing: the update may be about to.
int CRegLibImplFile::refuseDuringOthersUpdate() const {
    return isUpdatedElsewhere() ? REGLIB_E_FAIL : REGLIB_OK;
}

// A child of fork has the update of its parent in its tree, and the parent may yet fail to write it,
// or write more: the child begins again from the file.
void CRegLibImplFile::dropInheritedUpdate() {
    if (m_nUpdateDepth == 0) {
        return;
    }
    m_nUpdateDepth = 0;
    --m_openUpdates;
    m_isTreeAhead = std::exchange(m_bUpdatePending, false) || m_isTreeAhead;
    if (m_isTreeAhead) {
        m_shared.adopt(0);
    }
    m_shared.forgetInherited();
    m_critSec.forgetInherited();
}

// Reads the file into a tree of its own, which then takes the place of the old one. Until that is
// sure to succeed nothing is changed.
int CRegLibImplFile::readAnew() {
    auto old = std::make_unique<CKeyOrValue>(1, kTreeRootName);
    old.swap(m_pRootNode);
    const auto putBack = [&] { old.swap(m_pRootNode); };
    try {
        const int result = ImportConfigHelper();
        if (result != REGLIB_E_END_OF_FILE || m_isReadCutShort) {
            putBack();
            return result;
        }
        moveHandles(*old, *m_pRootNode);
        makeRoomForDisplaced();
    } catch (...) {
        putBack();
        throw;
    }
    m_isTreeAhead = false;
    discard(std::move(old));  // what has no counterpart loses its handles
    return REGLIB_E_END_OF_FILE;
}

// Finds all pairs first: moving needs no memory then, and is done wholly or not at all.
void CRegLibImplFile::moveHandles(const CKeyOrValue& from, CKeyOrValue& to) {
    std::vector<std::pair<const CKeyOrValue*, CKeyOrValue*>> pairs{{&from, &to}};
    for (std::size_t at = 0; at < pairs.size(); ++at) {
        const auto [old, fresh] = pairs[at];
        for (const auto& child : old->m_mapChildren) {
            CKeyOrValue* const counterpart = fresh->findChild(child.first);
            if (counterpart && counterpart->m_iIsKey == child.second->m_iIsKey) {
                pairs.emplace_back(child.second.get(), counterpart);
            }
        }
    }
    for (const auto& [old, fresh] : pairs) {
        if (old->m_ulKeyHandleID != 0) {
            fresh->m_ulKeyHandleID = old->m_ulKeyHandleID;
            m_handles.move(old, fresh);
        }
    }
}

// What an operation calls when it has changed the tree.
int CRegLibImplFile::commitChange() {
    if (m_nUpdateDepth > 0) {
        m_bUpdatePending = true;
        return REGLIB_OK;
    }
    return ExportConfig();
}

}  // namespace VQRegLib
