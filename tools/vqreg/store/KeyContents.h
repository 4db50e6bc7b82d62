// What one key of a store holds: the library's calls on its handle.
#ifndef TOOLS_VQREG_STORE_KEYCONTENTS_H
#define TOOLS_VQREG_STORE_KEYCONTENTS_H

#include <string>
#include <vector>

#include "tools/vqreg/store/OpenStore.h"
#include "tools/vqreg/text/Model.h"

namespace vqreg {

class KeyContents {
public:
    explicit KeyContents(OpenStore& store) : m_store(store) {}

    // With their types, and without their data.
    std::vector<Value> valueNames(VQRegLib::CRegKey& key);
    std::vector<std::string> keyNames(VQRegLib::CRegKey& key);

    // The data of the value that has the name, and the other way; the library's codes.
    int query(VQRegLib::CRegKey& key, Value& value);
    int set(VQRegLib::CRegKey& key, const Value& value);

private:
    OpenStore& m_store;
};

}  // namespace vqreg

#endif  // TOOLS_VQREG_STORE_KEYCONTENTS_H
