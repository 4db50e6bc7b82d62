// A part of a store in memory, detached from it: what is listed, exported, imported and compared.
#ifndef TOOLS_VQREG_TEXT_MODEL_H
#define TOOLS_VQREG_TEXT_MODEL_H

#include <VQRegLib.h>

#include <cstdint>
#include <map>
#include <string>

#include "tools/vqreg/text/Path.h"

namespace vqreg {

struct Value {
    std::string name;  // as it was created
    VQRegLib::CRegLib::eDataType type = VQRegLib::CRegLib::eNone;
    std::uint32_t number = 0;  // of a dword
    std::string bytes;         // of a string, without its NUL, or of binary data

    bool sameData(const Value& other) const {
        return type == other.type && number == other.number && bytes == other.bytes;
    }
};

// Sub keys and values by their folded names, which is the order of the store.
struct Key {
    std::string name;
    std::map<std::string, Value> values;
    std::map<std::string, Key> keys;
};

struct Count {
    std::size_t keys = 0;
    std::size_t values = 0;
};

Count countBelow(const Key& key);  // the key itself not counted

// A key below another one; null when it is missing.
const Key* findKey(const Key& top, const Path& path);

// A top with the key at a path below it and nothing else; the name of the key is the path's last.
Key topAround(const Path& path, Key key);

}  // namespace vqreg

#endif  // TOOLS_VQREG_TEXT_MODEL_H
