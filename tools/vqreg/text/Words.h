// The words of a line as a shell would split it, without what a shell would put in the place of
// anything.
#ifndef TOOLS_VQREG_TEXT_WORDS_H
#define TOOLS_VQREG_TEXT_WORDS_H

#include <string>
#include <string_view>
#include <vector>

namespace vqreg {

// Blanks and tabs separate words. '...' is taken as it is, in "..." a backslash keeps the meaning
// of a quote, a backslash, "$" or "`" away, elsewhere that of any character. "#" at the start of a
// word begins a comment. Throws eMalformed for a quote that is not closed and for a backslash at
// the end.
std::vector<std::string> wordsOf(std::string_view line);

}  // namespace vqreg

#endif  // TOOLS_VQREG_TEXT_WORDS_H
