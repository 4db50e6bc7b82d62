// The parts of a path, as text.
#ifndef PORTABLE_PATHPARTS_H
#define PORTABLE_PATHPARTS_H

#include <string>

namespace VQRegLib {

// The directory in which a path is: "." for a bare name.
inline std::string directoryOfPath(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return path.substr(0, slash == 0 ? 1 : slash);
}

}  // namespace VQRegLib

#endif  // PORTABLE_PATHPARTS_H
