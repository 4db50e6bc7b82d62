// The importer: merges the file into the tree.
#include "RegLib/base/AtEnd.h"
#include "RegLib/base/FoldedName.h"
#include "RegLib/file/FileStore.h"
#include "RegLib/file/LineReader.h"
#include "RegLib/file/Node.h"
#include "RegLib/text/LineFormat.h"
#include "RegLib/trace/Trace.h"

namespace VQRegLib {

int CRegLibImplFile::ImportConfig(eUnwinding unwinding) {
    REGLIB_TRACE(eTraceFlow, ">>>CRegLibImplFile::ImportConfig\n");
    if (isUpToDate()) {
        return REGLIB_OK;
    }
    return bringUpToDate(unwinding);
}

int CRegLibImplFile::importLocked() {
    const std::uint64_t stamp = m_shared.stamp();
    m_shared.recoverAbsent();
    const int opened = FileOpen(eRead, nullptr);
    if (opened == REGLIB_E_NOT_FOUND) {
        m_file.lookForLostText();
        if (!isUpdatedElsewhere()) {
            // The result is 0 whatever it says: there is nothing to read.
            (void)ExportConfig();
        }
        REGLIB_TRACE(eTraceFlow, "<<<CRegLibImplFile::ImportConfig\n");
        return REGLIB_OK;
    }
    return opened < 0 ? opened : importOpened(stamp);
}

// Reads the open file and closes it. The stamp is that from before it was opened; after a read error
// the next operation tries again.
int CRegLibImplFile::importOpened(std::uint64_t stamp) {
    const CAtEnd closing([this] { FileClose(eRead, std::string()); });
    const int result = readOpened();
    if (result >= 0 && !m_isReadCutShort) {
        m_shared.adopt(stamp);
        m_file.forgetGlance();
    }
    return result;
}

int CRegLibImplFile::readOpened() {
    m_pPositions->forget();
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
    CLineReader reader(m_file.file());
    CKeyOrValue* current = nullptr;
    bool isEmpty = true;
    bool hasValues = false;
    std::string_view line;
    while (reader.next(line)) {
        isEmpty = false;
        REGLIB_TRACE(eTraceImport, "import line \"%.*s\"\n", static_cast<int>(line.size()),
                     line.data());
        int result = REGLIB_E_BAD_FORMAT;
        if (!line.empty() && line.front() == '[') {
            result = ImportCreateKeyHelper(&current, line);
        } else if (current) {
            result = ImportCreateValueHelper(current, line);
            hasValues = true;
        }
        if (result < 0) {
            return result;
        }
    }
    m_isReadCutShort = reader.error() != 0;
    if (hasValues) {
        m_file.noteValues();
    }
    if (isEmpty) {
        m_file.lookForLostText();
    }
    if (m_isReadCutShort) {
        REGLIB_TRACE(eTraceAlways,
                     "(Error) CRegLibImplFile:fgets_ (0x%08X), fgets failed, errno %d\n",
                     traceId(this), reader.error());
    }
    return REGLIB_E_END_OF_FILE;
}

int CRegLibImplFile::ImportCreateKeyHelper(CKeyOrValue** current, std::string_view line) {
    *current = nullptr;
    std::string_view rest;
    const int result = parseKeyLine(line, rest);
    if (result < 0) {
        return result;
    }
    CKeyOrValue* node = m_pRootNode.get();
    for (std::string_view name; nextKeyLineName(rest, name);) {
        const CFoldedName folded(name);
        const auto at = node->lowerBound(node->m_mapChildren.end(), folded.view());
        if (at != node->m_mapChildren.end() && at->first == folded.view()) {
            node = at->second.get();  // a value too: the lines that follow then belong to it
        } else {
            auto key = std::make_unique<CKeyOrValue>(1, std::string(name));
            key->m_strFullName = line;  // the whole of it, also what follows the bracket
            node = node->addChild(at, folded.view(), std::move(key));
        }
        *current = node;
    }
    m_pPositions->importHint = node->m_mapChildren.begin();
    return REGLIB_OK;
}

int CRegLibImplFile::ImportCreateValueHelper(CKeyOrValue* key, std::string_view line) {
    CValueLine parts;
    const int result = parseValueLine(line, parts);
    if (result < 0) {
        return result;
    }
    const CFoldedName folded(parts.name);
    const auto at = key->lowerBound(m_pPositions->importHint, folded.view());
    const bool found = at != key->m_mapChildren.end() && at->first == folded.view();
    CKeyOrValue* const old = found ? at->second.get() : nullptr;
    if (old && !old->m_iIsKey && old->m_mapChildren.empty()) {
        // Nothing can tell it from a new node, and a process that reads a million foreign changes
        // does not grow.
        old->m_strName = parts.name;
        old->m_strValue = line;
        old->m_eDataType = parts.type;
        m_pPositions->importHint = std::next(at);
        return REGLIB_OK;
    }
    auto value = std::make_unique<CKeyOrValue>(0, std::string(parts.name));
    value->m_strValue = line;
    value->m_eDataType = parts.type;
    if (found) {
        makeRoomForDisplaced();
        value->m_pParent = key;
        value->m_place = at;
        at->second.swap(value);
        m_pPositions->importHint = std::next(at);
        displace(std::move(value));
    } else {
        key->addChild(at, folded.view(), std::move(value));
        m_pPositions->importHint = at;
    }
    return REGLIB_OK;
}

}  // namespace VQRegLib
