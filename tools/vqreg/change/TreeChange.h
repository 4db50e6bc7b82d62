// Texts that are put into a store: what import and apply have in common.
#ifndef TOOLS_VQREG_CHANGE_TREECHANGE_H
#define TOOLS_VQREG_CHANGE_TREECHANGE_H

#include <optional>
#include <string>
#include <vector>

#include "tools/vqreg/change/Changing.h"
#include "tools/vqreg/change/PlacedTree.h"
#include "tools/vqreg/store/StoreFile.h"

namespace vqreg {

struct TextOptions {
    std::string file;                // or "-"
    std::optional<std::string> key;  // that the text is about
    bool replace = false;            // delete what only the store has
};

// The tree of a text, which is JSON when it begins with "{". One that is to replace something covers
// its first key line and what is below it, or the key that a JSON text names; it is refused when it
// names no key or has keys elsewhere.
PlacedTree readTree(const StoreOptions& store, const TextOptions& options);

// What the text would change now, found without changing or making anything. A root key that is
// missing is among it. Throws where a merge would have to delete something: a key in the place of a
// value, or the other way round.
std::vector<Change> plannedChanges(const StoreOptions& store, const TextOptions& options,
                                   const PlacedTree& tree);

// Makes the changes in one update and reports them. They are recorded; an interruption leaves the
// store as it was.
void changeTree(Changing& changing, const StoreOptions& store, const TextOptions& options,
                const PlacedTree& tree);

}  // namespace vqreg

#endif  // TOOLS_VQREG_CHANGE_TREECHANGE_H
