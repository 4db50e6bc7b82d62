// The text of a store's file.
#ifndef TOOLS_VQREG_STORE_STORETEXT_H
#define TOOLS_VQREG_STORE_STORETEXT_H

#include <optional>
#include <string>

namespace vqreg {

// The whole file. Throws what openFault says when it cannot be read.
std::string readStoreFile(const std::string& file, const std::string& root);

// Likewise; none when there is no file, but one could be made.
std::optional<std::string> readStoreFileIfAny(const std::string& file, const std::string& root);

// For a file that is missing or empty beside a backup that has a text: what is wrong, and what brings
// the text back.
std::optional<std::string> lostTextHint(const std::string& file);

}  // namespace vqreg

#endif  // TOOLS_VQREG_STORE_STORETEXT_H
