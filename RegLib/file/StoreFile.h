// Which file a store is.
#ifndef REGLIB_FILE_STOREFILE_H
#define REGLIB_FILE_STOREFILE_H

#include <string>

namespace VQRegLib {

// The file of the store that is asked for by a path, or, when that is null, of the machine's default store:
// the one behind the links in its place, as far as they may be followed.
std::string storeFile(const char* name);

}  // namespace VQRegLib

#endif  // REGLIB_FILE_STOREFILE_H
