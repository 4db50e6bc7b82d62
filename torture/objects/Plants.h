// What another user puts under a name that an object is going to have.
#ifndef VQTORTURE_PLANTS_H
#define VQTORTURE_PLANTS_H

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <string>

#include "objects/Objects.h"
#include "support/Children.h"
#include "support/ObjectAttacks.h"

namespace vqtorture {

enum class Answer { eRefused, eUsed, eUsedByRoot };

struct Plant {
    const char* name;
    Answer answer;  ///< of who finds it in the place of a lock or a block
    bool (*lay)(const std::string& object, const std::string& victim);
};

inline bool makeFile(const std::string& path, mode_t mode) {
    const int fd = ::open(path.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0600);
    const bool isMade = fd >= 0 && ::fchmod(fd, mode) == 0;
    ::close(fd);
    return isMade;
}

constexpr std::array<Plant, 9> kPlants = {{
    {"a link", Answer::eRefused,
     [](const std::string& object, const std::string& victim) {
         return ::symlink(victim.c_str(), object.c_str()) == 0;
     }},
    {"a link to nothing", Answer::eRefused,
     [](const std::string& object, const std::string& victim) {
         return ::symlink((victim + ".made").c_str(), object.c_str()) == 0;
     }},
    {"a FIFO", Answer::eRefused,
     [](const std::string& object, const std::string&) {
         return ::mkfifo(object.c_str(), 0666) == 0 && ::chmod(object.c_str(), 0666) == 0;
     }},
    {"a directory", Answer::eRefused,
     [](const std::string& object, const std::string&) {
         return ::mkdir(object.c_str(), 0777) == 0 && ::chmod(object.c_str(), 0777) == 0;
     }},
    {"a socket", Answer::eRefused,
     [](const std::string& object, const std::string&) {
         return ::mknod(object.c_str(), S_IFSOCK | 0666, 0) == 0;
     }},
    {"an empty file", Answer::eUsed,
     [](const std::string& object, const std::string&) { return makeFile(object, 0666); }},
    {"a file of a GiB", Answer::eUsed,
     [](const std::string& object, const std::string&) {
         return makeFile(object, 0666) && vqtest::makeGiant(object);
     }},
    {"foreign content", Answer::eUsed,
     [](const std::string& object, const std::string&) {
         return makeFile(object, 0666) && vqtest::fillWithGarbage(object);
     }},
    {"a closed file", Answer::eUsedByRoot,
     [](const std::string& object, const std::string&) { return makeFile(object, 0); }},
}};

/// Lays a plant as the user kOther.
inline void layPlant(const Plant& plant, const std::string& object, const std::string& victim) {
    const auto planter = spawn([&] { return plant.lay(object, victim) ? 0 : 1; }, 20, kOther);
    requireEnd(*planter, std::string("who plants ") + plant.name);
}

}  // namespace vqtorture

#endif  // VQTORTURE_PLANTS_H
