// Updates: several changes that become one write of the file.
//
// An update is the two locks, held: the session lock by the caller's thread, which enters it once more
// than it leaves, and the cross-process lock, which has a depth of its own. Between begin and end the
// changes go to the tree and to nothing else; the end of the outermost one writes the file once.
//
// What could not be written is in the tree, so that whoever makes the same changes again changes nothing. The
// end of an update therefore writes, too, when an earlier writing has failed: who tries an update again until
// it succeeds has then written it.
//
// Everybody else meanwhile reads the file as it was before, and waits when they want to change it. The
// thread itself may have the same file open through another store (another spelling of the path, another
// root key): that store must not write, because the update's end would overwrite it with a tree that
// does not know of it, so it is refused (isUpdatedElsewhere).
//
// A fork in the middle leaves the child with a tree that is ahead of the file and with a lock that is not
// its own. It has no right to write those changes, and no way to take them back one by one: it marks the
// tree as ahead, and the next operation reads the file into a second tree and takes out of the first
// whatever that does not have (readAnew). Handles go on working, because their nodes are the old ones. An
// update that is dropped ends in the same way.
#include <utility>

#include "RegLib/base/Guarded.h"
#include "RegLib/file/FileSource.h"
#include "RegLib/file/Operation.h"
#include "RegLib/tree/Merge.h"

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
        if (m_isReadCutShort || m_isFileMissing) {
            return REGLIB_E_FILE_OPEN;  // its end could write nothing, or over what was never read
        }
        const int kept = Lock();  // once more, and kept
        if (kept >= 0 && m_updateDepth++ == 0) {
            ++m_openUpdates;
            ++m_updateNumber;
            m_shared.noteHolding();
        }
        return kept;
    });
}

int CRegLibImplFile::VQRegEndUpdate() {
    if (m_updateDepth == 0) {
        return REGLIB_E_FAIL;
    }
    m_openUpdates -= --m_updateDepth == 0 ? 1 : 0;
    const int result = guarded([this] {
        if (m_updateDepth > 0) {
            return REGLIB_OK;
        }
        const bool isPending = std::exchange(m_isUpdatePending, false);
        return isPending || m_isUnwritten ? ExportConfig() : REGLIB_OK;
    });
    (void)Unlock();  // the answer is whether the changes were written
    return result;
}

// A new stamp is all that it takes. In an update there would be no use: this process does not read before
// the end, and the end gives a new stamp.
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
    const bool isAnyOpen = m_openUpdates.load(std::memory_order_relaxed) != 0;
    return isAnyOpen && isUpdatedElsewhere() ? REGLIB_E_FAIL : REGLIB_OK;
}

// What it has changed is in the tree, and not to be written: this process begins again from the file.
void CRegLibImplFile::forgetUpdate() {
    m_updateDepth = 0;
    --m_openUpdates;
    m_isTreeAhead = std::exchange(m_isUpdatePending, false) || m_isTreeAhead;
    if (m_isTreeAhead) {
        m_shared.adopt(0);
    }
}

// An inner one is a part of the outermost one, whatever becomes of it. What could not be written before cannot
// be told from what the update has changed.
void CRegLibImplFile::dropUpdate() {
    if (m_updateDepth == 1) {
        m_isUpdatePending = std::exchange(m_isUnwritten, false) || m_isUpdatePending;
        forgetUpdate();
    } else {
        --m_updateDepth;
    }
    (void)Unlock();  // held here
}

// A child of fork has the update of its parent in its tree, and the parent may yet fail to write it,
// or write more.
void CRegLibImplFile::dropInheritedUpdate() {
    if (m_updateDepth == 0) {
        return;
    }
    forgetUpdate();
    m_shared.forgetInherited();
    m_critSec.forgetInherited();
}

// Reads the file into a tree of its own first, to know what the old one has beyond that, and whether
// the file can be read at all. Handles keep their nodes.
int CRegLibImplFile::readAnew() {
    CTree fresh;
    CFileSource source(m_file.file());
    const int result = noteMerge(mergeText(fresh, source));
    if (result != REGLIB_E_END_OF_FILE || m_isReadCutShort) {
        return result;
    }
    m_tree->reduceTo(fresh);
    source.rewind();
    source.beQuiet();
    const CMergeResult again = mergeText(*m_tree, source);
    m_isReadCutShort = again.readError != 0;
    m_isTreeAhead = again.code != REGLIB_E_END_OF_FILE || m_isReadCutShort;
    freeGoneNodes();
    return again.code;
}

// What an operation calls when it has changed the tree.
int CRegLibImplFile::commitChange() {
    if (m_updateDepth > 0) {
        m_isUpdatePending = true;
        return REGLIB_OK;
    }
    return ExportConfig();
}

}  // namespace VQRegLib
