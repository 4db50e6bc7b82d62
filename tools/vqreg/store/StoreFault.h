// Finds out why the library refuses a store. It tells no more than a code; a person wants to know
// which file or directory to look at.
#ifndef TOOLS_VQREG_STORE_STOREFAULT_H
#define TOOLS_VQREG_STORE_STOREFAULT_H

#include <optional>
#include <string>

#include "tools/vqreg/base/ExitCode.h"

namespace vqreg {

// Why the store cannot be opened or read.
CommandError openFault(const std::string& file, const std::string& root);

// Why a change cannot be written.
CommandError writeFault(const std::string& file);

// Why a change was written beside the file but did not take its place, which the library does not
// tell at all.
CommandError replaceFault(const std::string& file);

// For a code of the library that comes from neither.
CommandError codeFault(const std::string& file, const std::string& root, int code);

// For a store that is only to be read and whose file lacks the root key.
CommandError missingRootFault(const std::string& file, const std::string& root,
                              const std::string& text);

// True when a key line of the text names the root key or one below it.
bool hasRootKey(const std::string& text, const std::string& root);

}  // namespace vqreg

#endif  // TOOLS_VQREG_STORE_STOREFAULT_H
