// The opening and closing of the store's file.
#include <cerrno>

#include "RegLib/file/FileStore.h"
#include "RegLib/trace/Trace.h"
#include "portable/FileOps.h"
#include "portable/Portable.h"

namespace VQRegLib {

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
    const int result = finishOpen(mode, name.c_str(), m_pFile ? 0 : errno);
    if (openedName) {
        *openedName = std::move(name);
    }
    return result;
}

// For reading. When the file is missing, nothing is told: with the lock in hand it will be opened
// again.
int CRegLibImplFile::openUnlocked() {
    m_pFile = CFileOps::current().openForReading(m_pszFileName);
    const int error = m_pFile ? 0 : errno;
    if (error == ENOENT) {
        return REGLIB_E_NOT_FOUND;
    }
    REGLIB_TRACE(eTraceFlow, "CRegLibImplFile::FileOpen (0x%08X) \"%s\"\n", traceId(this),
                 m_pszFileName);
    return finishOpen(eRead, m_pszFileName, error);
}

int CRegLibImplFile::finishOpen(int mode, const char* name, int error) {
    CFileOps& files = CFileOps::current();
    // At every open, so that a file written under a narrow umask becomes everybody's in the end.
    if (m_pFile && mode == eRead) {
        files.makeWritableForAll(m_pFile);
    } else {
        files.makeWritableForAll(m_pszFileName);
    }
    if (m_pFile) {
        return REGLIB_OK;
    }
    REGLIB_TRACE(eTraceAlways,
                 "(Error) CRegLibImplFile::FileOpen (0x%08X) \"%s\" failed, errno %d\n",
                 traceId(this), name, error);
    return error == ENOENT ? REGLIB_E_NOT_FOUND : REGLIB_E_FILE_OPEN;
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
    // Some file systems tell only at the closing that a write has failed. And a program that has
    // closed all descriptors has let go of the lock.
    if (!isClosed || !m_pMutex->isStillHeld()) {
        return REGLIB_E_FILE_OPEN;
    }
    markReplacing();
    const bool isOfOpening = m_isTextLost && !m_hasFileValues;
    if (!m_file.replaceAtOnce(openedName.c_str(), isOfOpening)) {
        // The mark outlives everybody, unlike the stamp.
        m_pMutex->setMark(true);
        m_file.replaceInSteps(openedName.c_str());
        m_pMutex->setMark(false);
    }
    return REGLIB_OK;
}

}  // namespace VQRegLib
