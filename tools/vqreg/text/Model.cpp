#include "tools/vqreg/text/Model.h"

#include <utility>

namespace vqreg {

Count countBelow(const Key& key) {
    Count count{key.keys.size(), key.values.size()};
    for (const auto& entry : key.keys) {
        const Count below = countBelow(entry.second);
        count.keys += below.keys;
        count.values += below.values;
    }
    return count;
}

const Key* findKey(const Key& top, const Path& path) {
    const Key* key = &top;
    for (const std::string& name : path) {
        const auto found = key->keys.find(folded(name));
        if (found == key->keys.end()) {
            return nullptr;
        }
        key = &found->second;
    }
    return key;
}

Key topAround(const Path& path, Key key) {
    for (auto name = path.rbegin(); name != path.rend(); ++name) {
        key.name = *name;
        Key above;
        above.keys.emplace(folded(*name), std::move(key));
        key = std::move(above);
    }
    return key;
}

}  // namespace vqreg
