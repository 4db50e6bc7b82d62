#include "tools/vqreg/text/Model.h"

#include <algorithm>

namespace vqreg {

std::string folded(const std::string& name) {
    std::string result = name;
    std::transform(result.begin(), result.end(), result.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    return result;
}

Count countBelow(const Key& key) {
    Count count{key.keys.size(), key.values.size()};
    for (const auto& entry : key.keys) {
        const Count below = countBelow(entry.second);
        count.keys += below.keys;
        count.values += below.values;
    }
    return count;
}

}  // namespace vqreg
