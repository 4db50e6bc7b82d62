// The importer: merges the file into the tree.
//
// The stamp that is remembered is the one from before the file was opened. What is read may be newer than
// that, and then the next operation reads once more for nothing; the other way round, a change that
// came in between would be missed until the next one. After a reading that an error cut short nothing is
// remembered and nothing is written: the tree holds a part of the file, and an export of a part would be
// the end of the rest.
#include "RegLib/base/AtEnd.h"
#include "RegLib/file/FileSource.h"
#include "RegLib/file/FileStore.h"
#include "RegLib/trace/Trace.h"
#include "RegLib/tree/Merge.h"

namespace VQRegLib {

int CRegLibImplFile::importLocked() {
    const std::uint64_t stamp = m_shared.stamp();
    const bool isRecovered = m_shared.recoverAbsent();
    const int opened = FileOpen(eRead, nullptr);
    if (opened == REGLIB_E_NOT_FOUND && !isRecovered) {
        return REGLIB_E_FILE_OPEN;
    }
    if (opened == REGLIB_E_NOT_FOUND) {
        m_file.lookForLostText();
        if (!isUpdatedElsewhere()) {
            // The result is 0 whatever it says: there is nothing to read.
            m_isFileMissing = ExportConfig() < 0;
        }
        REGLIB_TRACE(eTraceFlow, "<<<CRegLibImplFile::ImportConfig\n");
        return REGLIB_OK;
    }
    return opened < 0 ? opened : importOpened(stamp);
}

// Reads the open file and closes it. The stamp is that from before it was opened; after a read error
// the next operation tries again.
int CRegLibImplFile::importOpened(std::uint64_t stamp) {
    // What was read is not lost by a closing that fails.
    const CAtEnd closing([this] { (void)FileClose(eRead, std::string()); });
    m_isFileMissing = false;
    const int result = readOpened();
    if (result >= 0 && !m_isReadCutShort) {
        m_shared.adopt(stamp);
        m_file.forgetGlance();
    }
    return result;
}

int CRegLibImplFile::readOpened() {
    int result = m_isTreeAhead ? readAnew() : ImportConfigHelper();
    if (result == REGLIB_E_END_OF_FILE) {
        result = REGLIB_OK;
    }
    if (result < 0) {
        REGLIB_TRACE(eTraceAlways,
                     "(Error) CRegLibImplFile::ImportConfig (0x%08X), import failed 0x%08X\n",
                     traceId(this), static_cast<unsigned>(result));
    }
    REGLIB_TRACE(eTraceFlow, "<<<CRegLibImplFile::ImportConfig\n");
    return result;
}

int CRegLibImplFile::ImportConfigHelper() {
    CFileSource source(m_file.file());
    return noteMerge(mergeText(*m_tree, source));
}

// What a whole merge tells beside its code.
int CRegLibImplFile::noteMerge(const CMergeResult& result) {
    if (result.code != REGLIB_E_END_OF_FILE) {
        return result.code;
    }
    if (result.hasValues) {
        m_file.noteValues();
    }
    m_isReadCutShort = result.readError != 0;
    if (result.isEmpty) {
        m_file.lookForLostText();
    }
    if (m_isReadCutShort) {
        REGLIB_TRACE(eTraceAlways,
                     "(Error) CRegLibImplFile:fgets_ (0x%08X), fgets failed, errno %d\n",
                     traceId(this), result.readError);
    }
    return REGLIB_E_END_OF_FILE;
}

}  // namespace VQRegLib
