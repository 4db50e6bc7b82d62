// The texts of files and of standard input.
#ifndef TOOLS_VQREG_BASE_FILETEXT_H
#define TOOLS_VQREG_BASE_FILETEXT_H

#include <optional>
#include <string>

namespace vqreg {

// The whole of a file; none, with errno, when it cannot be opened or read. Where no link is followed,
// nobody is waited for either who would have to write into a pipe.
enum class eLinks { eFollow, eRefuse };
std::optional<std::string> textOfFile(const std::string& path, eLinks links = eLinks::eFollow);

// The whole of a file, or of standard input for "-". Throws eUnavailable.
std::string readInput(const std::string& file);

}  // namespace vqreg

#endif  // TOOLS_VQREG_BASE_FILETEXT_H
