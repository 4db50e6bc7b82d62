// Finds texts in a store.
#ifndef TOOLS_BROWSE_SEARCH_H
#define TOOLS_BROWSE_SEARCH_H

#include <optional>
#include <string>

#include "tools/vqreg/text/Model.h"

namespace vqreg {

// A key, or a value of a key.
struct Place {
    Path path;
    std::optional<std::string> value;  // its name

    bool operator==(const Place&) const = default;
};

// The next place behind the present one, in the order of the store, whose name or data hold the text,
// whatever its case; from the end on it goes on at the beginning. The present place is the last that is
// looked at. None where nothing is found.
std::optional<Place> findNext(const Key& root, const Place& present, const std::string& text,
                              bool forward);

}  // namespace vqreg

#endif  // TOOLS_BROWSE_SEARCH_H
