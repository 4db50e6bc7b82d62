// A part of a store in memory, detached from it: what is listed, exported, imported and compared.
#ifndef TOOLS_VQREG_TEXT_MODEL_H
#define TOOLS_VQREG_TEXT_MODEL_H

#include <VQRegLib.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace vqreg {

using Path = std::vector<std::string>;  // the names of keys, from the root key on

// Lower case as the store folds names: A to Z only.
std::string folded(const std::string& name);

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

}  // namespace vqreg

#endif  // TOOLS_VQREG_TEXT_MODEL_H
