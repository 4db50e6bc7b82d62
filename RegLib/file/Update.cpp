// Updates: several changes that become one write of the file.
#include <utility>

#include "RegLib/base/Guarded.h"
#include "RegLib/file/Operation.h"

namespace VQRegLib {

// Both locks stay taken until the end of the update; the session lock is the caller's.
int CRegLibImplFile::VQRegBeginUpdate() {
    return guarded([this] {
        COperation operation(*this);
        if (operation.result() < 0) {
            return operation.result();
        }
        if (isUpdatedElsewhere()) {
            return REGLIB_E_FAIL;
        }
        if (m_isReadCutShort) {
            return REGLIB_E_FILE_OPEN;  // its end could write nothing
        }
        Lock();  // once more, and kept
        ++m_nUpdateDepth;
        return REGLIB_OK;
    });
}

int CRegLibImplFile::VQRegEndUpdate() {
    if (m_nUpdateDepth == 0) {
        return REGLIB_E_FAIL;
    }
    --m_nUpdateDepth;
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
        const CStoreLock lock(*this, eUnwinding::eRelease);
        if (isUpdating() || isUpdatedElsewhere()) {
            return REGLIB_E_FAIL;
        }
        renewSharedStamp();
        return REGLIB_OK;
    });
}

// The thread holds the lock through another store of this process, which has an update on the same
// file. What this store wrote now would be overwritten by that update's end, and would bring half of
// it to light before.
bool CRegLibImplFile::isUpdatedElsewhere() const {
    return m_pMutex->isHeldThroughAnother();
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
