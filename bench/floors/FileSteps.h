/// The system calls by which a new text takes the place of the old one, and by which it is read.
#ifndef VQREG_BENCH_FILE_STEPS_H
#define VQREG_BENCH_FILE_STEPS_H

#include <cstdio>
#include <string>

#include "support/System.h"

namespace bench {

inline std::string floorPath(const std::string& directory) {
    return directory + "/floor.cfg";
}

inline void readWhole(const std::string& path, std::string& text) {
    const Descriptor file(path, O_RDONLY);
    struct stat status = {};
    require(fstat(file.get(), &status) == 0, "a file cannot be looked at");
    text.resize(static_cast<std::size_t>(status.st_size));
    require(read(file.get(), text.data(), text.size()) == status.st_size, "a file cannot be read");
}

inline void replaceFile(const std::string& path, const std::string& text) {
    const std::string fresh = path + "." + std::to_string(getpid());
    const std::string backup = path + ".bak";
    {
        const Descriptor file(fresh, O_WRONLY | O_CREAT | O_EXCL, 0600);
        require(write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()),
                "a file cannot be written");
        require(fchmod(file.get(), 0666) == 0, "a mode cannot be set");
    }
    unlink(backup.c_str());
    require(link(path.c_str(), backup.c_str()) == 0, "no link");
    require(std::rename(path.c_str(), backup.c_str()) == 0, "no backup");
    require(std::rename(fresh.c_str(), path.c_str()) == 0, "no replacement");
}

}  // namespace bench

#endif  // VQREG_BENCH_FILE_STEPS_H
