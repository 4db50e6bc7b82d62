// Trees from texts, and the place in a store where they belong.
#ifndef TOOLS_VQREG_CHANGE_PLACEDTREE_H
#define TOOLS_VQREG_CHANGE_PLACEDTREE_H

#include <string>
#include <string_view>

#include "tools/vqreg/store/StoreFile.h"
#include "tools/vqreg/text/ConfigText.h"

namespace vqreg {

// Throws eMalformed for a text that the library refuses, eWrongKind for one that it reads only a
// part of. Nothing is printed.
void checkClean(const std::string& file, const ConfigText& parsed);

// The tree of a configuration text, its top first. Prints what is odd about the text. Throws
// eMalformed when the library would refuse the text, after all faults have been printed. In a part of
// a store's text it is not odd that lines of the keys above are missing.
Key parsedTop(const std::string& file, std::string_view text, bool isPart = false);

// A tree that is to be put below the root key: at `path`.
struct PlacedTree {
    Path path;
    Key key;
    bool isNamed = true;  // the text has a key at all
};

// The part of a configuration text that is below the root key's key `path`. Throws eWrongKind for
// a text that also has something elsewhere, with the advice at the end of the message.
PlacedTree placedTree(
    const StoreOptions& options, const std::string& file, std::string_view text, const Path& path,
    const std::string& advice = "leave out the rest, or name another key or root key");

// Throws eWrongKind when the tree breaks a rule of the format, after all have been printed.
void checkRules(const StoreOptions& options, const PlacedTree& tree);

}  // namespace vqreg

#endif  // TOOLS_VQREG_CHANGE_TREEINPUT_H
