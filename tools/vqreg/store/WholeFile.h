// A store's file as a whole, for changes that are not made key by key: of a file that the library
// refuses, and by hand.
#ifndef TOOLS_VQREG_STORE_WHOLEFILE_H
#define TOOLS_VQREG_STORE_WHOLEFILE_H

#include <string>

#include "tools/vqreg/store/StoreFile.h"
#include "tools/vqreg/store/StoreSession.h"
#include "tools/vqreg/text/ConfigText.h"

namespace vqreg {

// Options for a session on all keys of a file, whatever their names. `top` is what the file has;
// opening the session creates none.
StoreOptions wholeFile(const StoreOptions& options, const Key& top);

// Puts the text in the place of a malformed file, or of a missing one. The library refuses such a
// file, so that the store's lock cannot be had: this is done without it. The malformed text is kept
// beside the file under a new name, which is said. Throws eNegative when the file is not malformed
// any more, or not the text that the caller has seen.
void replaceMalformed(const StoreOptions& options, const std::string& text,
                      const std::string* seen = nullptr);

// Makes all processes read the file again, whose top is this, and tells them if that is wanted.
// Without it, those that have not met another text than theirs would not look at the file, and their
// next change would write over it.
void makeReread(const StoreOptions& options, const Key& top);

}  // namespace vqreg

#endif  // TOOLS_VQREG_STORE_WHOLEFILE_H
