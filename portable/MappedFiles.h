// Which processes have a file in their memory, as the kernel tells it.
#ifndef PORTABLE_MAPPEDFILES_H
#define PORTABLE_MAPPEDFILES_H

#include <cstdint>

namespace VQRegLib {

// A process that maps the regular file of that path; 0 when there is no such file, and nothing else is
// looked at then, or none in sight maps it: the system lets only root look into processes of others.
// Links are not followed. Never throws and needs no memory of the caller.
std::int32_t processThatMaps(const char* path) noexcept;

}  // namespace VQRegLib

#endif  // PORTABLE_MAPPEDFILES_H
