// What is different between two states of a key and of everything below it.
#ifndef REGLIB_C_DIFFERENCES_H
#define REGLIB_C_DIFFERENCES_H

#include <deque>
#include <string>

#include "RegLib/tree/Tree.h"

namespace VQRegLib {

// One state of a value, as a query gives it.
struct CValueState {
    CRegLib::eDataType type = CRegLib::eNone;
    std::string data;

    bool operator==(const CValueState&) const = default;
};

struct CDifference {
    std::string path;  // of the key, below the watched store's root key
    std::string name;  // of the value
    bool isOfKey = false;
    bool isPresent = false;
    CValueState before;
    CValueState after;
};

// A key in a tree; there may be none.
struct CPlaceInTree {
    const CTree* tree = nullptr;
    const CKeyOrValue* key = nullptr;
};

// Appends them in order: a key that has come before what is in it, one that has gone behind. Names are
// spelled as they are now.
void findDifferences(const CPlaceInTree& before, const CPlaceInTree& after, const std::string& path,
                     std::deque<CDifference>& differences);

}  // namespace VQRegLib

#endif  // REGLIB_C_DIFFERENCES_H
