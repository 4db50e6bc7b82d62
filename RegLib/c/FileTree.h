// A tree that is what the store's file says and nothing else.
#ifndef REGLIB_C_FILETREE_H
#define REGLIB_C_FILETREE_H

#include <memory>
#include <string>

#include "RegLib/tree/Tree.h"

namespace VQRegLib {

// Reads a file. REGLIB_E_NOT_FOUND when it is missing, REGLIB_E_FILE_OPEN when it cannot be read,
// REGLIB_E_BAD_FORMAT when it is malformed, REGLIB_E_FAIL without memory
// or without a descriptor.
[[nodiscard]] int readTree(const std::string& file, std::unique_ptr<CTree>& tree);

// The key of a path, names with "/" between them, from the top of the file; null when there is none.
const CKeyOrValue* findKey(const CTree& tree, std::string_view path);

// The whole text of a file; false when it cannot be read.
[[nodiscard]] bool readText(const std::string& file, std::string& text);

}  // namespace VQRegLib

#endif  // REGLIB_C_FILETREE_H
