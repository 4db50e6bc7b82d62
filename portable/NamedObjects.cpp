// Reading a directory of thousands of objects costs a sender more than waking everybody. CNamesMark is the
// directory's change time, which moves with every name that comes or goes; as long as it stands still, what
// was found the last time is all there is. A time from within the last tick of the kernel's clock proves
// nothing, because another name may still come with the same one, so it never compares as unchanged.
#include "portable/NamedObjects.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <memory>

#include "portable/ObjectName.h"

namespace VQRegLib {

namespace {

constexpr std::int64_t kTickNanoseconds = 50'000'000;  // more than any clock's

std::int64_t nanoseconds(const timespec& time) {
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

struct CCloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};

}  // namespace

CPEnumNamedObjects::CPEnumNamedObjects(const std::string& prefix, int type) {
    if (type != kSemaphores) {
        return;
    }
    look(prefix);
    std::sort(m_names.begin(), m_names.end());
}

void CPEnumNamedObjects::look(const std::string& prefix) {
    const std::unique_ptr<DIR, CCloseDirectory> directory(opendir(kObjectDirectory));
    if (!directory) {
        return;
    }
    const std::string filePrefix = kSemaphoreFilePrefix + prefix;
    constexpr std::size_t kKindSize = sizeof kSemaphoreFilePrefix - 1;
    for (;;) {
        errno = 0;
        const dirent* const entry = readdir(directory.get());
        if (!entry) {
            m_isComplete = errno == 0;
            return;
        }
        const std::string file = entry->d_name;
        if (file.compare(0, filePrefix.size(), filePrefix) == 0) {
            m_names.push_back(file.substr(kKindSize));
        }
    }
}

int CPEnumNamedObjects::enumNamedObject(int index, std::string* name, int* type) const {
    if (index < 0 || static_cast<std::size_t>(index) >= m_names.size()) {
        return 0;
    }
    *name = m_names[static_cast<std::size_t>(index)];
    *type = kSemaphores;
    return 1;
}

CNamesMark CNamesMark::now() {
    CNamesMark mark;
    struct stat status {};
    timespec now{};
    if (::stat(kObjectDirectory, &status) == 0 &&
        ::clock_gettime(CLOCK_REALTIME_COARSE, &now) == 0) {
        mark.m_device = status.st_dev;
        mark.m_inode = status.st_ino;
        mark.m_changed = status.st_ctim;
        mark.m_isSettled = nanoseconds(now) - nanoseconds(status.st_ctim) > kTickNanoseconds;
    }
    return mark;
}

bool CNamesMark::isUnchangedSince(const CNamesMark& earlier) const {
    return earlier.m_isSettled && m_device == earlier.m_device && m_inode == earlier.m_inode &&
           nanoseconds(m_changed) == nanoseconds(earlier.m_changed);
}

}  // namespace VQRegLib
