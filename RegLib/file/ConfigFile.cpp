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

bool CConfigFile::isBackupBetter(bool isOfOpening) const {
    const CFileOps& files = CFileOps::current();
    if (!files.holdsText(m_path.c_str())) {
        return files.holdsText(backup());
    }
    return isOfOpening && files.hasLineBeside(backup(), '[');
}

bool CConfigFile::replaceAtOnce(const char* temporary, bool isOfOpening) const {
    CFileOps& files = CFileOps::current();
    const char* const path = m_path.c_str();
    if (isBackupBetter(isOfOpening)) {
        files.rename(temporary, path);
        return true;
    }
    files.unlink(backup());
    if (files.link(path, backup()) == 0) {
        replaceInSteps(temporary);
        return true;
    }
    if (files.exchange(temporary, path) != 0) {
        return false;
    }
    if (files.rename(temporary, backup()) != 0) {
        files.unlink(temporary);
    }
    return true;
}

void CConfigFile::replaceInSteps(const char* temporary) const {
    CFileOps& files = CFileOps::current();
    files.rename(m_path.c_str(), backup());
    files.rename(temporary, m_path.c_str());
}

void CConfigFile::recover() const {
    CFileOps& files = CFileOps::current();
    if (!files.exists(m_path.c_str()) && files.link(backup(), m_path.c_str()) != 0) {
        files.rename(backup(), m_path.c_str());
    }
}

}  // namespace VQRegLib
