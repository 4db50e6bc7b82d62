// Which store is meant, and where its file is.
#ifndef TOOLS_VQREG_STORE_STOREFILE_H
#define TOOLS_VQREG_STORE_STOREFILE_H

#include <optional>
#include <string>

#include "tools/vqreg/text/Path.h"

namespace vqreg {

struct StoreOptions {
    std::optional<std::string> file;  // none: the default store
    std::optional<std::string> root;  // none: "Velquist"
    double timeoutSeconds = 30;       // for the lock
    bool notify = true;               // announce changes
    bool create = false;              // make the file and the root key when they are missing
    bool wholeFile = false;           // paths begin at the top of the file, not at the root key
};

// The name of the root key, which may be a path; and as a path from the top of the file.
std::string rootName(const StoreOptions& options);
Path rootPath(const StoreOptions& options);

// A path below the root key, from the top of the file on.
Path fullPath(const StoreOptions& options, const Path& path);

// The absolute path that these options give, and the one of the file that the library uses for it:
// they differ where the given one is a symbolic link, which is followed, link after link, when it is
// root's or the caller's. What it leads to need not exist. Throws eUnavailable for a link of somebody
// else and for links in a circle.
std::string givenFile(const StoreOptions& options);
std::string storeFile(const StoreOptions& options);

}  // namespace vqreg

#endif  // TOOLS_VQREG_STORE_STOREFILE_H
