#include "support/ModelStore.h"

#include <map>
#include <stdexcept>
#include <utility>
#include <vector>

#include "VQRegLib.h"
#include "support/Wire.h"

namespace vqtest {

using namespace VQRegLib;  // the result codes

struct ModelStore::Leaf {
    std::string name;     // as created
    std::string written;  // as in the line of the file
    int type = 0;
    std::uint32_t number = 0;
    std::string data;  // a text without NUL, or bytes
};

// Values and keys by their lower-case names; std::string orders by unsigned bytes.
struct ModelStore::Key {
    std::string name;
    std::map<std::string, Leaf> values;
    std::map<std::string, std::unique_ptr<Key>> keys;

    void print(const std::string& parentPath, std::string& text) const;
    void reread();
};

namespace {

std::string folded(std::string_view name) {
    std::string lower(name);
    for (char& byte : lower) {
        if (byte >= 'A' && byte <= 'Z') {
            byte = static_cast<char>(byte - 'A' + 'a');
        }
    }
    return lower;
}

std::vector<std::string> namesOf(std::string_view path) {
    std::vector<std::string> names(1);
    for (const char byte : path) {
        if (byte == '/' || byte == '\\') {
            names.emplace_back();
        } else {
            names.back() += byte;
        }
    }
    return names;
}

template <typename LeafType>
std::string lineOf(const LeafType& leaf) {
    std::string line = "\"";
    line.append(leaf.written).append("\"=");
    if (leaf.type == CRegLib::eDword) {
        line.append("dword:").append(codeToText(static_cast<int>(leaf.number)));
    } else if (leaf.type == CRegLib::eString) {
        line.append("string:").append(leaf.data);
    } else {
        line.append("binary:").append(toHex(leaf.data));
    }
    return line.append("\n");
}

}  // namespace

void ModelStore::Key::print(const std::string& parentPath, std::string& text) const {
    const std::string path = parentPath + name;
    text.append("[").append(path).append("]\n");
    for (const auto& entry : values) {
        text += lineOf(entry.second);
    }
    for (const auto& entry : keys) {
        entry.second->print(path + "/", text);
    }
}

void ModelStore::Key::reread() {
    for (auto& entry : values) {
        entry.second.name = entry.second.written;
    }
    for (auto& entry : keys) {
        entry.second->reread();
    }
}

std::unique_ptr<ModelStore::Key> ModelStore::makeKey(std::string name) {
    auto key = std::make_unique<Key>();
    key->name = std::move(name);
    return key;
}

ModelStore::ModelStore(std::string_view root) : m_top(makeKey("")), m_root(m_top.get()) {
    useRoot(root);
}

ModelStore::~ModelStore() = default;

void ModelStore::useRoot(std::string_view path) {
    Key* found = nullptr;
    if (find(m_top.get(), path, true, found) != REGLIB_OK) {
        throw std::logic_error("the root key is a value");
    }
    m_root = found;
}

void ModelStore::reread() {
    m_top->reread();
}

int ModelStore::find(Key* from, std::string_view path, bool create, Key*& found) const {
    found = from;
    if (path == ".") {
        return REGLIB_OK;
    }
    int result = REGLIB_OK;
    for (const std::string& name : namesOf(path)) {
        const std::string lower = folded(name);
        if (found->values.count(lower) != 0) {
            result = REGLIB_E_NOT_A_KEY;
        }
        if (result != REGLIB_OK) {
            continue;  // the rest is looked up where the path came to its end
        }
        auto entry = found->keys.find(lower);
        if (entry == found->keys.end()) {
            if (!create) {
                result = REGLIB_E_KEY_NOT_FOUND;
                continue;
            }
            entry = found->keys.emplace(lower, makeKey(name)).first;
        }
        found = entry->second.get();
    }
    return result;
}

int ModelStore::create(std::string_view path) {
    Key* found = nullptr;
    return find(m_root, path, true, found);
}

int ModelStore::open(std::string_view path) const {
    Key* found = nullptr;
    return find(m_root, path, false, found);
}

int ModelStore::deleteKey(std::string_view path) {
    if (path == ".") {
        throw std::logic_error("the root key cannot be named for deletion");
    }
    Key* found = nullptr;
    const int code = find(m_root, path, false, found);
    if (code != REGLIB_OK) {
        return code;
    }
    if (!found->keys.empty() || !found->values.empty()) {
        return REGLIB_E_KEY_NOT_EMPTY;
    }
    Key* parent = m_root;
    const std::size_t separator = path.find_last_of("/\\");
    if (separator != std::string_view::npos) {
        find(m_root, path.substr(0, separator), false, parent);
    }
    parent->keys.erase(folded(found->name));
    return REGLIB_OK;
}

int ModelStore::findForSet(std::string_view path, const std::string& name, Leaf*& leaf) {
    Key* key = nullptr;
    const int code = find(m_root, path, false, key);
    if (code != REGLIB_OK) {
        return code;
    }
    const std::string lower = folded(name);
    if (key->keys.count(lower) != 0) {
        return REGLIB_E_NOT_A_VALUE;
    }
    const auto [entry, isNew] = key->values.try_emplace(lower);
    leaf = &entry->second;
    if (isNew) {
        leaf->name = name;
        leaf->written = name;
    }
    return REGLIB_OK;
}

int ModelStore::set(std::string_view path, const std::string& name, std::uint32_t number) {
    Leaf* leaf = nullptr;
    const int code = findForSet(path, name, leaf);
    if (code == REGLIB_OK) {
        leaf->written = leaf->name;
        leaf->type = CRegLib::eDword;
        leaf->number = number;
    }
    return code;
}

int ModelStore::set(std::string_view path, const std::string& name, const std::string& text) {
    Leaf* leaf = nullptr;
    const int code = findForSet(path, name, leaf);
    if (code == REGLIB_OK) {
        leaf->written = name;
        leaf->type = CRegLib::eString;
        leaf->data = text;
    }
    return code;
}

int ModelStore::setBinary(std::string_view path, const std::string& name,
                          const std::string& bytes) {
    Leaf* leaf = nullptr;
    const int code = findForSet(path, name, leaf);
    if (code == REGLIB_OK) {
        leaf->written = name;
        leaf->type = CRegLib::eBinary;
        leaf->data = bytes;
    }
    return code;
}

int ModelStore::deleteValue(std::string_view path, const std::string& name) {
    Key* key = nullptr;
    const int code = find(m_root, path, false, key);
    if (code != REGLIB_OK) {
        return code;
    }
    const std::string lower = folded(name);
    if (key->keys.count(lower) != 0) {
        return REGLIB_E_NOT_A_VALUE;
    }
    return key->values.erase(lower) != 0 ? REGLIB_OK : REGLIB_E_NOT_FOUND;
}

Value ModelStore::get(std::string_view path, const std::string& name) const {
    Key* key = nullptr;
    const int code = find(m_root, path, false, key);
    if (code != REGLIB_OK) {
        return Value::failure(code);
    }
    const std::string lower = folded(name);
    if (key->keys.count(lower) != 0) {
        return Value::failure(REGLIB_E_NOT_A_VALUE);
    }
    const auto entry = key->values.find(lower);
    if (entry == key->values.end()) {
        return Value::failure(REGLIB_E_NOT_FOUND);
    }
    const Leaf& leaf = entry->second;
    if (leaf.type == CRegLib::eDword) {
        return Value::ofDword(leaf.number);
    }
    return leaf.type == CRegLib::eString ? Value::ofText(leaf.data) : Value::ofBinary(leaf.data);
}

KeyNames ModelStore::enumKeys(std::string_view path) const {
    KeyNames result;
    Key* key = nullptr;
    result.code = find(m_root, path, false, key);
    if (result.code == REGLIB_OK) {
        for (const auto& entry : key->keys) {
            result.names.push_back(entry.second->name);
        }
    }
    return result;
}

ValueNames ModelStore::enumValues(std::string_view path) const {
    ValueNames result;
    Key* key = nullptr;
    result.code = find(m_root, path, false, key);
    if (result.code == REGLIB_OK) {
        for (const auto& entry : key->values) {
            result.names.emplace_back(entry.second.name, entry.second.type);
        }
    }
    return result;
}

std::string ModelStore::text() const {
    std::string text;
    for (const auto& entry : m_top->keys) {
        entry.second->print("", text);
    }
    return text;
}

}  // namespace vqtest
