#include "objects/Objects.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "portable/ObjectName.h"
#include "support/TraceLog.h"

namespace fs = std::filesystem;

namespace vqtorture {

namespace {

constexpr char kDefaultStore[] = "/etc/Velquist.cfg";

ino_t inodeOf(const fs::path& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

// The kernel shows the number of a segment as the inode of its mapping.
bool isMapped(std::int64_t segment) {
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        std::istringstream words(line);
        std::string range;
        std::string rights;
        std::string offset;
        std::string device;
        std::int64_t inode = -1;
        words >> range >> rights >> offset >> device >> inode;
        if (inode == segment && line.find("/SYSV") != std::string::npos) {
            return true;
        }
    }
    return false;
}

}  // namespace

std::string lockOf(const std::string& path) {
    return VQRegLib::objectPath(VQRegLib::kLockKind, path);
}

std::string blockOf(const std::string& path) {
    return VQRegLib::objectPath(VQRegLib::kBlockKind, path);
}

std::string newPlace(Run& run) {
    static unsigned number = 0;
    const std::string directory = run.directory() + "/place" + std::to_string(++number);
    fs::create_directory(directory);
    fs::permissions(directory, fs::perms::all);
    return directory + "/store.cfg";
}

void removeObjects(const std::string& path) {
    fs::remove_all(lockOf(path));
    fs::remove_all(blockOf(path));
}

void removePlace(const std::string& path) {
    removeObjects(path);
    fs::remove_all(fs::path(path).parent_path());
}

void removeDefaultStore() {
    require(vqtest::inPrivateRoot(), "only a private root may lose its default store");
    removeObjects(kDefaultStore);
    fs::remove(kDefaultStore);
    fs::remove(std::string(kDefaultStore) + ".bak");
}

Shared sharedObjects(const std::string& path) {
    Shared shared;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code ignored;
        const std::string target = fs::read_symlink(entry.path(), ignored).string();
        if (target.starts_with(lockOf(path))) {
            shared.lock = inodeOf(entry.path());
        } else if (target.starts_with(blockOf(path))) {
            shared.block = inodeOf(entry.path());
            VQRegLib::CBlockRecord record{};
            std::ifstream file(entry.path(), std::ios::binary);
            file.read(reinterpret_cast<char*>(&record), sizeof record);
            if (isMapped(record.id)) {
                shared.segment = static_cast<ino_t>(record.id) + 1;  // segments count from 0
            }
        }
    }
    return shared;
}

std::vector<std::string> linesWith(const std::string& one, const std::string& other) {
    std::vector<std::string> found;
    for (const std::string& path : {vqtest::TraceLog::path()}) {
        std::ifstream log(path);
        for (std::string line; std::getline(log, line);) {
            if (line.find(one) != std::string::npos && line.find(other) != std::string::npos) {
                found.push_back(line);
            }
        }
    }
    return found;
}

}  // namespace vqtorture
