// The file store's cross-process lock, its change stamp, and the opening and replacing of its file.
#include <algorithm>
#include <cerrno>

#include "RegLib/file/FileStore.h"
#include "RegLib/trace/Trace.h"
#include "portable/FileOps.h"
#include "portable/Portable.h"

namespace VQRegLib {

int CRegLibImplFile::Lock() {
    const CPMutex::eWaitResult result = m_pMutex->wait(CPMutex::kInfinite, nullptr);
    if (result == CPMutex::eOwnerDied) {
        recoverFromDeath();
    }
    return result;
}

int CRegLibImplFile::Unlock() {
    return m_pMutex->release();
}

// The dead holder may have replaced the file and not yet told anybody, so everybody shall read it
// again.
void CRegLibImplFile::recoverFromDeath() {
    m_file.recover();
    if (m_pullSharedChangeStamp) {
        renewSharedStamp();
    }
}

// Later than any stamp before, whatever the clock does, and never 0: that is the local stamp of a
// store that has not read its file yet.
void CRegLibImplFile::renewSharedStamp() {
    const std::uint64_t next = std::max(CPortable::GetTickCountULL(), *m_pullSharedChangeStamp + 1);
    *m_pullSharedChangeStamp = next != 0 ? next : 1;
}

int CRegLibImplFile::FileOpen(int mode, std::string* openedName) {
    CFileOps& files = CFileOps::current();
    std::string name = m_pszFileName;
    if (mode != eRead) {
        name += CPortable::newPUUID();
    }
    REGLIB_TRACE(eTraceFlow, "CRegLibImplFile::FileOpen (0x%08X) \"%s\"\n", traceId(this),
                 name.c_str());
    m_pFile = mode != eRead ? files.createForWriting(name.c_str(), m_ullTextSize)
                            : files.openForReading(name.c_str());
    const int error = m_pFile ? 0 : errno;
    // At every open, so that a file written under a narrow umask becomes everybody's in the end.
    if (m_pFile && mode == eRead) {
        files.makeWritableForAll(m_pFile);
    } else {
        files.makeWritableForAll(m_pszFileName);
    }
    int result = REGLIB_OK;
    if (!m_pFile) {
        result = error == ENOENT ? REGLIB_E_NOT_FOUND : REGLIB_E_FILE_OPEN;
        REGLIB_TRACE(eTraceAlways,
                     "(Error) CRegLibImplFile::FileOpen (0x%08X) \"%s\" failed, errno %d\n",
                     traceId(this), name.c_str(), error);
    }
    if (openedName) {
        *openedName = std::move(name);
    }
    return result;
}

int CRegLibImplFile::FileClose(int mode, const std::string& openedName) {
    const bool isWriting = mode != eRead && !openedName.empty();
    bool isClosed = true;
    if (m_pFile) {
        isClosed = CFileOps::current().close(m_pFile) == 0;
        m_pFile = nullptr;
    }
    if (!isWriting) {
        return REGLIB_OK;
    }
    if (!isClosed) {
        return REGLIB_E_FILE_OPEN;  // some file systems tell only now that a write has failed
    }
    m_file.replaceBy(openedName.c_str());
    return REGLIB_OK;
}

}  // namespace VQRegLib
