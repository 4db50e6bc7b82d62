// The exporter, which writes the whole tree, and the dump.
#include <algorithm>

#include "RegLib/file/FileStore.h"
#include "RegLib/file/LineWriter.h"
#include "RegLib/file/Node.h"
#include "RegLib/trace/Trace.h"
#include "portable/FileOps.h"

namespace VQRegLib {

namespace {

using CKeyOrValue = CRegLibImplFile::CKeyOrValue;

bool hasLine(const CKeyOrValue& key) {
    return key.m_strName != kTreeRootName;
}

bool hasValue(const CKeyOrValue& root) {
    const CKeyOrValue* node = &root;
    while (node && node->m_iIsKey) {
        node = node->nextShown(root);
    }
    return node != nullptr;
}

std::uint64_t textSize(const CKeyOrValue& root) {
    std::uint64_t size = 0;
    for (const CKeyOrValue* key = &root; key; key = key->nextKey(root)) {
        size += hasLine(*key) ? key->m_strFullName.size() + 1 : 0;
        for (const auto& child : key->m_mapChildren) {
            size += child.second->m_iIsKey ? 0 : child.second->m_strValue.size() + 1;
        }
    }
    return size;
}

}  // namespace

int CRegLibImplFile::ExportConfig() {
    REGLIB_TRACE(eTraceFlow, ">>>CRegLibImplFile::ExportConfig\n");
    // After a reading that an error cut short, the file may hold more than the tree.
    const int result = m_isReadCutShort ? REGLIB_E_FILE_OPEN : replaceText();
    if (result < 0) {
        REGLIB_TRACE(eTraceAlways,
                     "(Error) CRegLibImplFile::ExportConfig (0x%08X), export failed 0x%08X\n",
                     traceId(this), static_cast<unsigned>(result));
        return result;
    }
    m_shared.publish();
    m_file.forgetGlance();
    REGLIB_TRACE(eTraceFlow, "<<<CRegLibImplFile::ExportConfig\n");
    return REGLIB_OK;
}

// A text that could not be written whole takes nobody's place.
int CRegLibImplFile::replaceText() {
    m_ullTextSize = textSize(*m_pRootNode);
    std::string openedName;
    const int opened = FileOpen(eWrite, &openedName);
    if (opened < 0) {
        return opened;
    }
    const bool isWhole = writeTree(openedName);
    const bool hasValues = hasValue(*m_pRootNode);
    if (FileClose(isWhole ? eWrite : eRead, openedName) < 0 || !isWhole) {
        CFileOps::current().unlink(openedName.c_str());
        return REGLIB_E_FILE_OPEN;
    }
    if (hasValues) {
        m_file.noteValues();
    }
    return REGLIB_OK;
}

// Leaves no half-written file behind when there is no memory for the buffer.
bool CRegLibImplFile::writeTree(const std::string& openedName) try {
    CLineWriter writer(this, m_file.file(), static_cast<std::size_t>(m_ullTextSize));
    ExportConfigHelper(m_pRootNode.get(), writer);
    return writer.finish();
} catch (...) {
    FileClose(eRead, std::string());
    CFileOps::current().unlink(openedName.c_str());
    throw;
}

int CRegLibImplFile::ExportConfigHelper(const CKeyOrValue* node, CLineWriter& writer) {
    if (!node->m_iIsKey) {
        writer.line(node->m_strValue);
        return REGLIB_OK;
    }
    for (const CKeyOrValue* key = node; key; key = key->nextKey(*node)) {
        if (hasLine(*key)) {
            writer.line(key->m_strFullName);
        }
        for (const auto& child : key->m_mapChildren) {
            if (!child.second->m_iIsKey) {
                writer.line(child.second->m_strValue);
            }
        }
    }
    return REGLIB_OK;
}

void CRegLibImplFile::dump() {
    DumpConfig(0, m_pRootNode.get());
}

namespace {

unsigned long levelsBelow(const CKeyOrValue& top, const CKeyOrValue* node) {
    unsigned long levels = 0;
    for (; node != &top; node = node->m_pParent) {
        ++levels;
    }
    return levels;
}

void dumpNode(unsigned long depth, const CKeyOrValue& node) {
    static constexpr char kBlanks[] =
        "                                                               ";
    constexpr unsigned long kLargestIndent = sizeof kBlanks - 1;
    const char* const indent = kBlanks + kLargestIndent - std::min(2 * depth, kLargestIndent);
    std::printf("  %sname %s, iskey %d, fullname %s, value %s\n", indent, node.m_strName.c_str(),
                node.m_iIsKey, node.m_strFullName.c_str(),
                node.m_iIsKey ? "<key>" : node.m_strValue.c_str());
}

}  // namespace

void CRegLibImplFile::DumpConfig(unsigned long depth, const CKeyOrValue* node) const {
    if (depth == 0) {
        std::puts("--dump keys/values");
    }
    for (const CKeyOrValue* at = node; at; at = at->nextShown(*node)) {
        dumpNode(depth + levelsBelow(*node, at), *at);
    }
}

}  // namespace VQRegLib
