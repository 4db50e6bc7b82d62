// Updates: several changes that become one write of the file.
#include <utility>

#include "RegLib/base/Guarded.h"
#include "RegLib/file/Operation.h"

namespace VQRegLib {

// Both locks stay taken until the end of the update; the session lock is the caller's.
int CRegLibImplFile::VQRegBeginUpdate() {
    return guarded([this] {
        COperation operation(*this);
        if (operation.result() >= 0) {
            Lock();  // once more, and kept
            ++m_nUpdateDepth;
        }
        return operation.result();
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

// What an operation calls when it has changed the tree.
int CRegLibImplFile::commitChange() {
    if (m_nUpdateDepth > 0) {
        m_bUpdatePending = true;
        return REGLIB_OK;
    }
    return ExportConfig();
}

}  // namespace VQRegLib
