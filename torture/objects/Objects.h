// The objects in /dev/shm that the processes of a store share.
#ifndef VQTORTURE_OBJECTS_H
#define VQTORTURE_OBJECTS_H

#include <sys/types.h>

#include <string>
#include <vector>

#include "support/Torture.h"

namespace vqtorture {

constexpr unsigned kOwner = 65533;  // a user without a name
constexpr unsigned kOther = 65534;

std::string lockOf(const std::string& path);
std::string blockOf(const std::string& path);

/// The path of a store in a new directory, which everybody may write, below the run's.
std::string newPlace(Run& run);

/// Removes a place with its files and objects.
void removePlace(const std::string& path);

/// Removes the objects of a store, whatever they are.
void removeObjects(const std::string& path);

/// Removes the default store, which each process reads its trace level from, and its objects.
void removeDefaultStore();

/// What this process shares with the others: the inodes of lock and block that it has open and the
/// segment that it has mapped. 0 where it has not.
struct Shared {
    ino_t lock = 0;
    ino_t block = 0;
    ino_t segment = 0;

    bool isWhole() const { return lock != 0 && block != 0 && segment != 0; }
    bool operator==(const Shared&) const = default;
};
Shared sharedObjects(const std::string& path);

/// The texts of the trace log that contain both.
std::vector<std::string> linesWith(const std::string& one, const std::string& other);

void crowd(Run& run);
void killedCreator(Run& run);
void planted(Run& run);
void attacked(Run& run);
void permissions(Run& run);
void protectedLinks(Run& run);
void pidNamespaces(Run& run);

}  // namespace vqtorture

#endif  // VQTORTURE_OBJECTS_H
