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

// For a path that no change could be written to, because its name leaves no room for the names of
// temporary files.
std::optional<CommandError> nameFault(const std::string& file);

// For a file that is missing or empty beside a backup that has a text: what is wrong, and what brings
// the text back.
std::optional<std::string> lostTextHint(const std::string& file);

// For a code of the library that comes from neither.
CommandError codeFault(const std::string& file, const std::string& root, int code);

// The whole file. Throws what openFault says when it cannot be read.
std::string readStoreFile(const std::string& file, const std::string& root);

// Likewise; none when there is no file, but one could be made.
std::optional<std::string> readStoreFileIfAny(const std::string& file, const std::string& root);

// For a store that is only to be read and whose file lacks the root key.
CommandError missingRootFault(const std::string& file, const std::string& root,
                              const std::string& text);

// True when a key line of the text names the root key or one below it.
bool hasRootKey(const std::string& text, const std::string& root);

}  // namespace vqreg

#endif  // TOOLS_VQREG_STORE_STOREFAULT_H
