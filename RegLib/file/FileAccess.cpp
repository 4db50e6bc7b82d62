// How the store takes its lock, and gets at the text of its file: as little as possible, and without
// the lock wherever it can. SharedState.cpp explains why that is right.
//
// Every operation begins with ImportConfig, which compares one word and returns. Only when that word has
// changed one comes here, and then it depends on what is found.
//
//  - The stamp is even and new: some writer has finished. The file is read without a lock; whoever writes
//    meanwhile replaces the name, not the content of what is open here.
//  - The stamp is odd: a writer is between its first and its last rename, or died there, or somebody has
//    stopped it there with a debugger. The lock tells which: who gets it and finds the stamp still odd
//    knows that the writer is dead, and puts things right. Who does not get it reads what the path names
//    now and does not remember the stamp (a glance). That result holds while the path names that file, so
//    that a stopped writer does not make everybody read the file at every query.
//  - There is no file. Then one has to be made, and that takes the lock, with waiting.
//  - The block with the stamp cannot be had at all. Nobody would learn of changes, so nothing is answered.
#include "RegLib/base/AtEnd.h"
#include "RegLib/file/FileStore.h"
#include "RegLib/file/Operation.h"
#include "portable/NoCancellation.h"

namespace VQRegLib {

int CRegLibImplFile::Lock() {
    return takeLock(CSharedState::kInfinite);
}

int CRegLibImplFile::Unlock() {
    return m_shared.release();
}

int CRegLibImplFile::takeLock(unsigned long milliseconds) {
    return m_shared.takeLock(milliseconds);
}

int CRegLibImplFile::FileOpen(int mode, std::string* openedName) {
    if (mode != eRead) {
        return m_file.createTemporary(m_textSize, openedName);
    }
    if (openedName) {
        *openedName = m_file.path();
    }
    return m_file.openForReading();
}

int CRegLibImplFile::FileClose(int mode, const std::string& openedName) {
    const bool isClosed = m_file.close();
    if (mode == eRead || openedName.empty()) {
        return REGLIB_OK;
    }
    return isClosed ? m_shared.replace(openedName) : REGLIB_E_FILE_OPEN;
}

int CRegLibImplFile::bringUpToDate(eUnwinding unwinding) {
    const CNoCancellation noCancellation;
    if (m_shared.isStampLost()) {
        return REGLIB_E_FILE_OPEN;
    }
    if (m_shared.isHeldHere()) {
        return importLocked();
    }
    const std::uint64_t stamp = m_shared.stamp();
    if (CSharedState::isReplacing(stamp)) {
        const CStoreLock lock(*this, unwinding, CStoreLock::eTry);
        return lock.result() < 0 ? glance(stamp, unwinding) : importLocked();
    }
    const int opened = m_file.openIfPresent();
    if (opened == REGLIB_E_NOT_FOUND) {
        return importWaiting(unwinding);
    }
    return opened < 0 ? opened : importOpened(stamp);
}

int CRegLibImplFile::importWaiting(eUnwinding unwinding) {
    const CStoreLock lock(*this, unwinding);
    return lock.result() < 0 ? lock.result() : importLocked();
}

// While a writer is at work, or has been stopped: the file as it is, and no stamp.
int CRegLibImplFile::glance(std::uint64_t stamp, eUnwinding unwinding) {
    m_shared.complainOfStopped(stamp);
    if (m_file.isGlanced()) {
        return m_file.glanceResult();
    }
    const int opened = m_file.openIfPresent();
    if (opened == REGLIB_E_NOT_FOUND) {
        return importWaiting(unwinding);
    }
    if (opened < 0) {
        return opened;
    }
    // What was read is not lost by a closing that fails.
    const CAtEnd closing([this] { (void)FileClose(eRead, std::string()); });
    m_file.forgetGlance();
    const int result = readOpened();
    if (!m_isReadCutShort) {
        m_file.keepGlance(result);
    }
    return result;
}

}  // namespace VQRegLib
