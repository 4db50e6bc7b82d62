// The exporter, which writes the whole tree, and the dump.
//
// The text is known as a list of pieces (TreeText.cpp), goes to a new file by writePieces, and takes the
// old one's place (ConfigFile.cpp). Three things have to be true afterwards, in this order: the file is the
// text, the stamp says that there is a new one, and this process knows that it has read it. What fails
// before the stamp is published leaves everybody with the old file, and this process with a tree that is
// ahead of it: the change is in memory, its caller has the code, and the next change that succeeds writes
// both.
//
// Where texts are to outlast a power cut, the text is on the disk before it takes the old one's place, and
// the names are before the caller is told. The stamp does not wait for the names: what takes the disk
// milliseconds is nothing to keep others from reading for.
#include <algorithm>
#include <cerrno>
#include <numeric>

#include "RegLib/file/FileStore.h"
#include "RegLib/trace/Trace.h"
#include "portable/FileOps.h"

namespace VQRegLib {

int CRegLibImplFile::ExportConfig() {
    REGLIB_TRACE(eTraceFlow, ">>>CRegLibImplFile::ExportConfig\n");
    m_isUnwritten = true;  // also when memory runs out on the way
    // After a reading that an error cut short, the file may hold more than the tree.
    const int result = m_isReadCutShort ? REGLIB_E_FILE_OPEN : replaceText();
    m_isUnwritten = result < 0;
    if (result < 0) {
        REGLIB_TRACE(eTraceAlways,
                     "(Error) CRegLibImplFile::ExportConfig (0x%08X), export failed 0x%08X\n",
                     traceId(this), static_cast<unsigned>(result));
        return result;
    }
    m_shared.publish();
    m_tree->textWasWritten();
    m_file.forgetGlance();
    const int synced = m_file.syncNames();
    REGLIB_TRACE(eTraceFlow, "<<<CRegLibImplFile::ExportConfig\n");
    return synced;
}

// A text that could not be written whole takes nobody's place.
int CRegLibImplFile::replaceText() {
    const std::vector<std::string_view>& pieces = m_tree->text();
    const bool hasValues = m_file.hasValues() || m_tree->hasValue();
    m_textSize = std::accumulate(
        pieces.begin(), pieces.end(), std::uint64_t{0},
        [](std::uint64_t size, std::string_view piece) { return size + piece.size(); });
    std::string openedName;
    const int opened = FileOpen(eWrite, &openedName);
    if (opened < 0) {
        return opened;
    }
    const bool isWhole = writeText(pieces, openedName) && m_file.writeOut();
    if (FileClose(isWhole ? eWrite : eRead, openedName) < 0 || !isWhole) {
        (void)CFileOps::current().unlink(openedName.c_str());  // at worst it is left lying about
        return REGLIB_E_FILE_OPEN;
    }
    if (hasValues) {
        m_file.noteValues();
    }
    return REGLIB_OK;
}

// Leaves no half-written file behind, whatever happens.
bool CRegLibImplFile::writeText(const std::vector<std::string_view>& pieces,
                                const std::string& openedName) try {
    if (CFileOps::current().writePieces(pieces, m_file.file()) == m_textSize) {
        return true;
    }
    const int error = errno;
    REGLIB_TRACE(eTraceAlways, "(Error) CRegLibImplFile:fputs_ (0x%08X), fputs failed, errno %d\n",
                 traceId(this), error);
    return false;
} catch (...) {
    (void)FileClose(eRead, std::string());  // the exception tells more than these two could
    (void)CFileOps::current().unlink(openedName.c_str());
    throw;
}

void CRegLibImplFile::dump() {
    DumpConfig(0, &m_tree->root());
}

namespace {

void dumpText(const char* before, std::string_view text) {
    std::fputs(before, stdout);
    if (!text.empty()) {
        std::fwrite(text.data(), 1, text.size(), stdout);
    }
}

void dumpNode(unsigned long depth, const CTree& tree, const CRegLibImplFile::CKeyOrValue& node) {
    constexpr unsigned long kLargestIndent = 63;
    ::flockfile(stdout);  // no other thread's text comes in between
    std::printf("  %*s", static_cast<int>(std::min(2 * depth, kLargestIndent)), "");
    dumpText("name ", tree.nameOf(node));
    std::printf(", iskey %d", node.m_iIsKey);
    dumpText(", fullname ", node.isKey() ? node.line() : std::string_view());
    dumpText(", value ", node.isKey() ? "<key>" : node.line());
    std::fputs("\n", stdout);
    ::funlockfile(stdout);
}

}  // namespace

void CRegLibImplFile::DumpConfig(unsigned long depth, const CKeyOrValue* node) const {
    if (depth == 0) {
        std::puts("--dump keys/values");
    }
    m_tree->forEachShown(*node, [&](const CKeyOrValue& at, unsigned long below) {
        dumpNode(depth + below, *m_tree, at);
    });
}

}  // namespace VQRegLib
