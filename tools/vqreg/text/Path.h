// Where something is in a store: paths of names, as people write them and as messages show them.
#ifndef TOOLS_VQREG_TEXT_PATH_H
#define TOOLS_VQREG_TEXT_PATH_H

#include <functional>
#include <string>
#include <vector>

namespace vqreg {

// The names of keys, each below the one before. It depends on the place whether they begin below the
// root key, which is then the empty path itself, or at the top of the file.
using Path = std::vector<std::string>;

// Lower case as the store folds names: A to Z only.
std::string folded(const std::string& name);

// Paths below the root key have "/" between names; "/" and "." are the root key itself; one leading
// "/" is allowed.
Path splitPath(const std::string& text);
std::string joinPath(const Path& path);
// As in JSON: the root key is "", and no path has a "/" in front.
std::string plainPath(const Path& path);

// The one path behind the other.
Path joined(Path above, const Path& below);

// Whether the path leads to that key or below it, whatever the spelling.
bool isSameOrBelow(const Path& path, const Path& top);

// A path as it may be copied from a listing: without the "/" at its end, where only the key without
// it exists.
Path tidiedPath(const Path& path, const std::function<bool(const Path&)>& isThere);

// Whether it comes from a text without a letter, which names no key.
bool isNothing(const Path& path);

// For messages: 'the key "a/b"', or "the root key"; 'the value "x" of the key "a/b"'.
std::string nameOfKey(const Path& path);
std::string nameOfValue(const Path& path, const std::string& name);

}  // namespace vqreg

#endif  // TOOLS_VQREG_TEXT_PATH_H
