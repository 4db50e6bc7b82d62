#include "tools/vqreg/store/KeyContents.h"

#include <array>
#include <cstring>

namespace vqreg {

using namespace VQRegLib;

namespace {

// Names are collected before anything is done with them: looking elsewhere in between makes the
// library count from the start again, and deleting would shift them.
template <typename Enumerate>
void forEachName(Enumerate&& enumerate, int& code) {
    for (int index = 0; (code = enumerate(index)) >= 0; ++index) {
    }
    if (code == REGLIB_E_NO_MORE_ITEMS) {
        code = REGLIB_OK;
    }
}

}  // namespace

std::vector<Value> KeyContents::valueNames(CRegKey& key) {
    std::vector<Value> values;
    int code = REGLIB_OK;
    forEachName(
        [&](int index) {
            Value value;
            const int result =
                m_store.session().VQRegEnumValues(key, index, value.name, value.type);
            if (result >= 0) {
                values.push_back(std::move(value));
            }
            return result;
        },
        code);
    m_store.check(code);
    return values;
}

std::vector<std::string> KeyContents::keyNames(CRegKey& key) {
    std::vector<std::string> names;
    int code = REGLIB_OK;
    forEachName(
        [&](int index) {
            std::string name;
            const int result = m_store.session().VQRegEnumKeys(key, index, name);
            if (result >= 0) {
                names.push_back(std::move(name));
            }
            return result;
        },
        code);
    m_store.check(code);
    return names;
}

int KeyContents::query(CRegKey& key, Value& value) {
    std::array<unsigned char, 2048> small{};
    std::vector<unsigned char> large;
    unsigned char* data = small.data();
    unsigned long size = small.size();
    int code = m_store.session().VQRegQueryValue(key, value.name.c_str(), value.type, data, &size);
    if (code == REGLIB_E_BUFFER_TOO_SMALL) {
        // One byte more for what the last of an odd number of digits yields.
        large.resize(size + 1);
        data = large.data();
        code = m_store.session().VQRegQueryValue(key, value.name.c_str(), value.type, data, &size);
    }
    if (code < 0) {
        return code;
    }
    if (value.type == CRegLib::eDword) {
        std::memcpy(&value.number, data, sizeof value.number);
    } else {
        const unsigned long nul = value.type == CRegLib::eString ? 1 : 0;
        value.bytes.assign(reinterpret_cast<const char*>(data), size - nul);
    }
    return code;
}

int KeyContents::set(CRegKey& key, const Value& value) {
    const char* const name = value.name.c_str();
    switch (value.type) {
        case CRegLib::eDword:
            return m_store.session().VQRegSetValue(key, name,
                                                   static_cast<unsigned long>(value.number));
        case CRegLib::eString:
            return m_store.session().VQRegSetValue(key, name, value.bytes.c_str());
        case CRegLib::eBinary:
            return m_store.session().VQRegSetValue(
                key, name, reinterpret_cast<const unsigned char*>(value.bytes.data()),
                value.bytes.size());
        case CRegLib::eNone:
            break;
    }
    return REGLIB_E_BAD_TYPE;
}

}  // namespace vqreg
