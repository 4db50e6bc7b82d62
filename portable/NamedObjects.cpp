#include "portable/NamedObjects.h"

#include <dirent.h>

#include <algorithm>
#include <memory>

#include "portable/ObjectName.h"

namespace VQRegLib {

namespace {

struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};

std::vector<std::string> semaphoresInDirectory(const std::string& prefix) {
    std::vector<std::string> names;
    const std::unique_ptr<DIR, CloseDirectory> directory(opendir(kObjectDirectory));
    if (!directory) {
        return names;
    }
    const std::string filePrefix = kSemaphoreFilePrefix + prefix;
    constexpr std::size_t kKindSize = sizeof kSemaphoreFilePrefix - 1;
    while (const dirent* const entry = readdir(directory.get())) {
        const std::string file = entry->d_name;
        if (file.compare(0, filePrefix.size(), filePrefix) == 0) {
            names.push_back(file.substr(kKindSize));
        }
    }
    return names;
}

}  // namespace

CPEnumNamedObjects::CPEnumNamedObjects(const std::string& prefix, int type) {
    if (type != kSemaphores) {
        return;
    }
    m_names = semaphoresInDirectory(prefix);
    std::sort(m_names.begin(), m_names.end());
}

int CPEnumNamedObjects::enumNamedObject(int index, std::string* name, int* type) const {
    if (index < 0 || static_cast<std::size_t>(index) >= m_names.size()) {
        return 0;
    }
    *name = m_names[static_cast<std::size_t>(index)];
    *type = kSemaphores;
    return 1;
}

}  // namespace VQRegLib
