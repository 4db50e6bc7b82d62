// The file on the disk. The header explains the replacement step by step; this is what each step is for.
//
// A writer may be killed between any two system calls, the machine may lose its power, the disk may be
// full, and at each of these moments somebody else may be starting. What must hold is one sentence: the
// path names a complete text, the old one or the new one. Four traps lie on the way.
//
//  - Writing into the file itself. A reader would see half a text. So there is a new file with a name
//    that nobody else makes (a unique identifier), and it is complete, closed and checked before any name
//    is touched. A disk that has no room is found out when it is opened, because the size is known then.
//  - Renaming the old file away first, as the steps say. In between there is no file, and a program that
//    starts at that moment takes the store for a new one, writes an empty file and so makes the loss
//    permanent. Hence the second name by link() before it: the rename between two names of one file then
//    does nothing.
//  - A backup that is worth more than the file. Somebody empties the file, or removes it; the next write
//    would make the empty text the backup. A backup that holds a text is only given up for a text.
//  - The mode. A file written under a narrow umask would lock other users out of a store that is
//    everybody's, so each opening makes the file that the path names 0666: when reading, on the open file;
//    when writing, by its name but never through a link, which another user may have put there. A new file
//    gets its mode at the next opening.
//
// A link or an exchange that fails chooses the next way; the results of the plain renames change nothing.
// There is nothing better to do than what comes next, and the last rename either happens as a whole or
// leaves the path as it is: with the old text, or, where the file system knows neither links nor exchanges,
// absent, and then the backup is put back (recover).
#include "RegLib/file/ConfigFile.h"

#include <cerrno>
#include <new>
#include <utility>

#include "RegLib/trace/Trace.h"
#include "VQRegLib.h"
#include "portable/FileOps.h"
#include "portable/Portable.h"

namespace VQRegLib {

namespace {

constexpr std::uint64_t kWrittenInAMoment = 64UL * 1024;

}  // namespace

void CConfigFile::setPath(const char* path) {
    m_path = path;
    m_backup = m_path + ".bak";
}

int CConfigFile::openForReading() {
    REGLIB_TRACE(eTraceFlow, "CRegLibImplFile::FileOpen (0x%08X) \"%s\"\n", traceId(m_traced),
                 path());
    m_pFile = CFileOps::current().openForReading(path());
    return finishOpen(true, path(), m_pFile ? 0 : errno);
}

int CConfigFile::openIfPresent() {
    m_pFile = CFileOps::current().openForReading(path());
    const int error = m_pFile ? 0 : errno;
    if (error == ENOENT) {
        return REGLIB_E_NOT_FOUND;
    }
    REGLIB_TRACE(eTraceFlow, "CRegLibImplFile::FileOpen (0x%08X) \"%s\"\n", traceId(m_traced),
                 path());
    return finishOpen(true, path(), error);
}

int CConfigFile::createTemporary(std::uint64_t size, std::string* name) {
    std::string temporary = m_path + CPortable::newPUUID();
    REGLIB_TRACE(eTraceFlow, "CRegLibImplFile::FileOpen (0x%08X) \"%s\"\n", traceId(m_traced),
                 temporary.c_str());
    m_pFile = CFileOps::current().createForWriting(temporary.c_str(), size);
    const int result = finishOpen(false, temporary.c_str(), m_pFile ? 0 : errno);
    m_isTextSeen = m_isTextSeen && size <= kWrittenInAMoment;
    if (name) {
        *name = std::move(temporary);
    }
    return result;
}

int CConfigFile::finishOpen(bool isReading, const char* name, int error) {
    CFileOps& files = CFileOps::current();
    // At every open, so that a file written under a narrow umask becomes everybody's in the end. Who may
    // not do that leaves it to the next one.
    m_isTextSeen = false;
    if (m_pFile && isReading) {
        (void)files.makeWritableForAll(m_pFile);
    } else {
        (void)files.makeWritableForAll(path(), &m_isTextSeen);
    }
    if (m_pFile) {
        return REGLIB_OK;
    }
    REGLIB_TRACE(eTraceAlways,
                 "(Error) CRegLibImplFile::FileOpen (0x%08X) \"%s\" failed, errno %d\n",
                 traceId(m_traced), name, error);
    return error == ENOENT ? REGLIB_E_NOT_FOUND : REGLIB_E_FILE_OPEN;
}

bool CConfigFile::close() {
    return !m_pFile || CFileOps::current().close(std::exchange(m_pFile, {})) == 0;
}

bool CConfigFile::writeOut() const {
    CFileOps& files = CFileOps::current();
    if ((m_isSynced ? files.syncData(m_pFile) : files.sendOut(m_pFile)) == 0) {
        return true;
    }
    const int error = errno;
    REGLIB_TRACE(
        eTraceAlways,
        "(Error) CRegLibImplFile::ExportConfig (0x%08X), the text cannot be brought to the "
        "disk, errno %d\n",
        traceId(m_traced), error);
    return false;
}

int CConfigFile::bringNamesToDisk() const {
    if (CFileOps::current().syncNames(path()) == 0) {
        return REGLIB_OK;
    }
    const int error = errno;
    REGLIB_TRACE(
        eTraceAlways,
        "(Error) CRegLibImplFile::ExportConfig (0x%08X), the directory cannot be brought to "
        "the disk, errno %d\n",
        traceId(m_traced), error);
    return REGLIB_E_FILE_OPEN;
}

void CConfigFile::keepGlance(int result) {
    m_glanced.keep(m_pFile.descriptor(), m_path);
    m_glancedResult = result;
}

bool CConfigFile::isTextLost() const {
    const CFileOps& files = CFileOps::current();
    return !files.holdsText(path()) && files.holdsText(backup());
}

void CConfigFile::lookForLostText() {
    if (isTextLost()) {
        m_isTextLost = true;
        REGLIB_TRACE(
            eTraceAlways,
            "(Error) CRegLibImplFile::ImportConfig (0x%08X), the file is missing or empty, "
            "its backup \"%s\" is not\n",
            traceId(m_traced), backup());
    }
}

// Where the text was lost, the file may be only what the opening of this store has made since; unless
// somebody has edited it.
bool CConfigFile::isBackupBetter() const {
    const CFileOps& files = CFileOps::current();
    if (!m_isTextSeen && !files.holdsText(path())) {
        return files.holdsText(backup());
    }
    return m_isTextLost && !m_hasFileValues && !files.hasLineBeside(path(), '[') &&
           files.hasLineBeside(backup(), '[');
}

// The results of the plain renames are of no use, here and below: what fails has changed nothing, and where
// the path is absent then, recover looks after it.
bool CConfigFile::replaceAtOnce(const char* temporary) const {
    CFileOps& files = CFileOps::current();
    if (isBackupBetter()) {
        (void)files.rename(temporary, path());
        return true;
    }
    (void)files.unlink(backup());
    if (files.link(path(), backup()) == 0) {
        replaceInSteps(temporary);
        return true;
    }
    if (files.exchange(temporary, path()) != 0) {
        return m_isSynced && replaceBesideCopy(temporary);
    }
    if (files.rename(temporary, backup()) != 0) {
        (void)files.unlink(temporary);
    }
    return true;
}

// The copy gets the backup's name when it is whole. Without one the steps keep the old text, and for a moment
// no file.
bool CConfigFile::replaceBesideCopy(const char* temporary) const try {
    CFileOps& files = CFileOps::current();
    const std::string copy = std::string(temporary) + ".bak";
    if (files.copySynced(path(), copy.c_str()) != 0) {
        return false;
    }
    if (files.rename(copy.c_str(), backup()) != 0) {
        (void)files.unlink(copy.c_str());
        return false;
    }
    (void)files.rename(temporary, path());
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

void CConfigFile::replaceInSteps(const char* temporary) const {
    CFileOps& files = CFileOps::current();
    (void)files.rename(path(), backup());
    (void)files.rename(temporary, path());
}

// Only what is known to be absent is replaced: where the disk fails at the look, nothing is known. The link
// finds no backup, or that there is a file; where it is not possible, the rename finds the former.
bool CConfigFile::recover() const {
    CFileOps& files = CFileOps::current();
    if (files.exists(path())) {
        return true;
    }
    if (errno != ENOENT) {
        return false;
    }
    if (files.link(backup(), path()) == 0 || errno == ENOENT || errno == EEXIST) {
        return true;
    }
    return files.rename(backup(), path()) == 0 || errno == ENOENT;
}

}  // namespace VQRegLib
