// What a person wants to have changed, as changes of a store.
#ifndef TOOLS_BROWSE_EDITS_H
#define TOOLS_BROWSE_EDITS_H

#include <optional>
#include <string>
#include <vector>

#include "tools/vqreg/text/Difference.h"

namespace vqreg {

// One step that can be undone: what is done, in words, and its changes, paths below the root key.
struct Edit {
    std::string what;  // 'set the value "Http" of the key "Network/Ports"'
    std::vector<Change> changes;
};

Edit setValue(const Path& path, const std::optional<Value>& before, const Value& after);
Edit deleteValue(const Path& path, const Value& value);
Edit renameValue(const Path& path, const Value& value, const std::string& name);
Edit createKey(const Path& path);
Edit deleteKey(const Path& path, const Key& key);
Edit renameKey(const Path& path, const Key& key, const std::string& name);

// What brings back the state of before.
Edit undoing(const Edit& edit);

// The edit with what it leads to, begun from how the store is now; none when it is so already. For edits
// that bring something back: what others have put below a key that is to go goes with it.
std::optional<Edit> rebased(const Edit& edit, const Key& root);

// Why the edit cannot be made below a root key of that name at all: the first rule of the format that
// it would break, or a name that is taken already.
std::optional<std::string> refusal(const std::string& rootName, const Key& root, const Edit& edit);

// The first place that is not as the edit expects it, because somebody else has changed it, how it is
// now, and how many more there are: 'the value "Http" of the key "Network/Ports" is "81" now, and 2
// more'. None when all is as expected.
std::optional<std::string> staleness(const Key& root, const Edit& edit);

// "3 keys and 1 value"
std::string countText(const Count& count);

}  // namespace vqreg

#endif  // TOOLS_BROWSE_EDITS_H
