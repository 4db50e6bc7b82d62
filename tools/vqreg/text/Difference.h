// What makes one tree out of another.
#ifndef TOOLS_VQREG_TEXT_DIFFERENCE_H
#define TOOLS_VQREG_TEXT_DIFFERENCE_H

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tools/vqreg/text/Model.h"

namespace vqreg {

// A value that is created, changed or deleted; or, without both values, a key.
struct Change {
    enum class eKind { eCreated, eChanged, eDeleted } kind = eKind::eCreated;
    Path path;  // of the key, or of the value's key
    std::optional<Value> before;
    std::optional<Value> after;

    bool isOfKey() const { return !before && !after; }
    const Value& value() const { return after ? *after : *before; }
};

// In the order of the store: a key before its values, values before sub keys. Names are the same
// regardless of case, and the spelling makes no difference. `path` is that of the two keys.
std::vector<Change> difference(const Key& before, const Key& after, const Path& path = {});

// One line without its end. `above` is put before the path; with ["Velquist"]:
//   + [Velquist/Network]
//   + [Velquist/Network] "Port"=dword:00001F90
//   ~ [Velquist/Network] "Port"=dword:00000050 -> dword:00001F90
//   - [Velquist/Network] "Port"=dword:00000050
std::string lineOf(const Change& change, const Path& above = {});

// A path from the top of the file without the root key's, or without the first name for a key that is
// elsewhere.
Path belowRoot(const Path& path, const Path& root);

// {"key": "Network", "name": "Port"}; keys have no "name". "key" is where the key is below the root
// key, which is "" itself. `root` is the root key's own path if the path of the change begins at the
// top of the file; a change elsewhere has the first name there as "root", and "key" is below that.
nlohmann::ordered_json jsonOfPlace(const Change& change, const Path& root);

// {"event": "changed", "key": "Network", "name": "Port", "old": {...}, "new": {...}}: the place, and
// what does not exist has no "old" or "new".
nlohmann::ordered_json jsonOf(const Change& change, const Path& root = {});

// The first tree with all that the second one has added to it. A name that is a key in one and a
// value in the other ends up as what it is in the second.
Key merged(Key base, const Key& addition);

// Names that are a key in one tree and a value in the other, as "[Velquist/Network] "Port"".
std::vector<std::string> kindConflicts(const Key& base, const Key& addition, const Path& path = {});

}  // namespace vqreg

#endif  // TOOLS_VQREG_TEXT_DIFFERENCE_H
