// What may be wrong with the places that a store needs: its directory, its file, its shared objects.
#ifndef TOOLS_VQREG_STORE_PLACEFAULT_H
#define TOOLS_VQREG_STORE_PLACEFAULT_H

#include <optional>
#include <string>

#include "tools/vqreg/base/ExitCode.h"

namespace vqreg {

std::string directoryOf(const std::string& file);

// Whether the caller may use a path in this way: R_OK, W_OK, X_OK.
bool may(const std::string& path, int mode);

// "the directory D is not writable (owner root, mode 0755)", or why else nothing can be made in it.
std::string notWritable(const std::string& directory);

// Each is none when all is well. A file that is missing is no fault where one could be made.
std::optional<CommandError> directoryFault(const std::string& file);
std::optional<CommandError> fileFault(const std::string& file);
std::optional<CommandError> sharedObjectFault(const std::string& file);

// For a path that no change could be written to, because its name leaves no room for the names of
// temporary files.
std::optional<CommandError> nameFault(const std::string& file);

}  // namespace vqreg

#endif  // TOOLS_VQREG_STORE_PLACEFAULT_H
