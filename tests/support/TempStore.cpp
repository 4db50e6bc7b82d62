#include "support/TempStore.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

namespace fs = std::filesystem;

namespace vqtest {

namespace {

constexpr const char* kSharedObjects = "/dev/shm";

struct stat statOf(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    return status;
}

std::vector<std::string> namesIn(const std::string& directory) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(directory)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace

std::string encodedPath(const std::string& path) {
    std::string text;
    for (const char byte : path) {
        if (byte == '/') {
            text += "%2F";
        } else if (byte == '%') {
            text += "%25";
        } else {
            text += byte;
        }
    }
    return text;
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (!in.is_open() || in.bad()) {
        throw std::runtime_error("cannot read " + path);
    }
    return text;
}

TempStore::TempStore(const std::string& below) {
    std::string name = below + "/vqreg-XXXXXX";
    if (::mkdtemp(name.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), name);
    }
    m_directory = name;
}

TempStore::~TempStore() {
    std::error_code ignored;
    fs::remove_all(m_directory, ignored);
    try {
        for (const std::string& name : sharedObjects()) {
            fs::remove(fs::path(kSharedObjects) / name, ignored);
        }
    } catch (const std::exception&) {
        // A directory that cannot be listed holds nothing of ours.
    }
}

std::string TempStore::path() const {
    return m_directory + "/store.cfg";
}

std::string TempStore::backupPath() const {
    return path() + ".bak";
}

std::string TempStore::read() const {
    return readFile(path());
}

std::string TempStore::readBackup() const {
    return readFile(backupPath());
}

void TempStore::write(const std::string& text) const {
    std::ofstream out(path(), std::ios::binary | std::ios::trunc);
    out << text;
    out.close();
    if (!out) {
        throw std::runtime_error("cannot write " + path());
    }
}

bool TempStore::exists() const {
    return fs::exists(path());
}

bool TempStore::backupExists() const {
    return fs::exists(backupPath());
}

std::vector<std::string> TempStore::files() const {
    return namesIn(m_directory);
}

std::vector<std::string> TempStore::sharedObjects() const {
    const std::string encoded = encodedPath(m_directory);
    std::vector<std::string> names;
    for (const std::string& name : namesIn(kSharedObjects)) {
        const bool isOurKind = name.starts_with("CPLock.") || name.starts_with("CPBlock.");
        if (isOurKind && name.find(encoded) != std::string::npos) {
            names.push_back(name);
        }
    }
    return names;
}

bool TempStore::isUnlocked() const {
    bool result = true;
    for (const std::string& name : sharedObjects()) {
        if (name.starts_with("CPLock.")) {
            const int fd =
                ::open((std::string(kSharedObjects) + "/" + name).c_str(), O_RDWR | O_CLOEXEC);
            result = result && ::flock(fd, LOCK_EX | LOCK_NB) == 0;
            ::close(fd);
        }
    }
    return result;
}

ino_t TempStore::inode() const {
    return statOf(path()).st_ino;
}

std::int64_t TempStore::mtime() const {
    const struct stat status = statOf(path());
    return static_cast<std::int64_t>(status.st_mtim.tv_sec) * 1000000000 + status.st_mtim.tv_nsec;
}

}  // namespace vqtest
