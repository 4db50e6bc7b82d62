#include "RegLib/file/ConfigFile.h"

#include "portable/FileOps.h"

namespace VQRegLib {

void CConfigFile::setPath(const char* path) {
    m_path = path;
    m_backup = m_path + ".bak";
}

bool CConfigFile::isTextLost() const {
    const CFileOps& files = CFileOps::current();
    return !files.holdsText(m_path.c_str()) && files.holdsText(m_backup.c_str());
}

void CConfigFile::replaceBy(const char* temporary) const {
    CFileOps& files = CFileOps::current();
    const char* const path = m_path.c_str();
    const char* const backup = m_backup.c_str();
    if (isTextLost()) {
        files.rename(temporary, path);
        return;
    }
    files.unlink(backup);
    const bool isLinked = files.link(path, backup) == 0;
    if (!isLinked && files.exchange(temporary, path) == 0) {
        if (files.rename(temporary, backup) != 0) {
            files.unlink(temporary);
        }
        return;
    }
    files.rename(path, backup);
    files.rename(temporary, path);
}

void CConfigFile::recover() const {
    CFileOps& files = CFileOps::current();
    if (!files.exists(m_path.c_str()) && files.link(backup(), m_path.c_str()) != 0) {
        files.rename(backup(), m_path.c_str());
    }
}

}  // namespace VQRegLib
