// Trees from files and standard input, and trees into a store.
#ifndef TOOLS_VQREG_CHANGE_TREEINPUT_H
#define TOOLS_VQREG_CHANGE_TREEINPUT_H

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/vqreg/store/StoreSession.h"
#include "tools/vqreg/text/ConfigText.h"
#include "tools/vqreg/text/Difference.h"

namespace vqreg {

using Names = std::vector<std::string>;

// The names of the root key, from the top of the file.
Names rootNames(const StoreOptions& options);

// The whole of a file, or of standard input for "-". Throws eUnavailable.
std::string readInput(const std::string& file);

// Each finding as a line on standard error.
void printFindings(const std::string& file, const std::vector<Finding>& findings);

// Throws eMalformed for a text that the library refuses, eWrongKind for one that it reads only a
// part of. Nothing is printed.
void checkClean(const std::string& file, const ConfigText& parsed);

// The tree of a configuration text, its top first. Prints what is odd about the text. Throws
// eMalformed when the library would refuse the text, after all faults have been printed. In a part of
// a store's text it is not odd that lines of the keys above are missing.
Key parsedTop(const std::string& file, std::string_view text, bool isPart = false);

// A key below another one; null when it is missing.
const Key* findKey(const Key& top, const Names& path);

// A top with the key at a path below it and nothing else; the name of the key is the path's last.
Key topAround(const Names& path, Key key);

// A tree that is to be put below the root key: at `path`.
struct PlacedTree {
    Names path;
    Key key;
    bool isNamed = true;  // the text has a key at all
};

// The part of a configuration text that is below the root key's key `path`. Throws eWrongKind for
// a text that also has something elsewhere, with the advice at the end of the message.
PlacedTree placedTree(
    const StoreOptions& options, const std::string& file, std::string_view text, const Names& path,
    const std::string& advice = "leave out the rest, or name another key or root key");

// Throws eWrongKind when the tree breaks a rule of the format, after all have been printed.
void checkRules(const StoreOptions& options, const PlacedTree& tree);

// On standard output, a line for each; `above` is put before the paths of the text lines. `root` is
// for JSON lines of changes whose paths begin at the top of a file.
void printChanges(const std::vector<Change>& changes, const Names& above, bool json,
                  const Names& root = {});

// Makes the changes, deletions first; `done` is called after each one.
void applyChanges(StoreSession& session, const std::vector<Change>& changes,
                  const std::function<void()>& done);

}  // namespace vqreg

#endif  // TOOLS_VQREG_CHANGE_TREEINPUT_H
