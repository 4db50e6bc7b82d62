// The operations on values.
#include "model/Store.h"

using namespace VQRegLib;

namespace vqtorture::model {

// `value` is null when there is none of the name, which is no failure yet.
int Store::findValue(const Key& key, const std::string& name, Node*& node, Node*& value) {
    const int code = keyNode(key, node);
    if (code < 0) {
        return code;
    }
    value = node->child(name);
    return value != nullptr && value->isKey ? REGLIB_E_NOT_A_VALUE : REGLIB_OK;
}

// A value that exists keeps the spelling of its creation in memory; its line has the setter's.
int Store::set(Key& key, const std::string& name, const std::string& line, DataType type) {
    Node* node = nullptr;
    Node* value = nullptr;
    const int code = findValue(key, name, node, value);
    if (code < 0) {
        return code;
    }
    if (isRefused()) {
        return REGLIB_E_FAIL;  // even if it is so already: the update may be about to change it
    }
    if (value != nullptr && value->line == line && value->type == type) {
        return REGLIB_OK;
    }
    if (value == nullptr) {
        value = &m_tree.addValue(*node, name);
    }
    value->line = line;
    value->type = type;
    return commit();
}

int Store::setString(Key& key, const std::string& name, const char* value) {
    return set(key, name, stringLine(name, value), CRegLib::eString);
}

// The number's setter, alone, uses the stored spelling.
int Store::setDword(Key& key, const std::string& name, unsigned long number) {
    Node* node = nullptr;
    Node* value = nullptr;
    const int code = findValue(key, name, node, value);
    if (code < 0) {
        return code;
    }
    return set(key, name, dwordLine(value != nullptr ? value->name : name, number),
               CRegLib::eDword);
}

int Store::setBinary(Key& key, const std::string& name, const unsigned char* data,
                     unsigned long size) {
    return set(key, name, binaryLine(name, data, size), CRegLib::eBinary);
}

int Store::deleteValue(Key& key, const std::string& name) {
    Node* node = nullptr;
    Node* value = nullptr;
    const int code = findValue(key, name, node, value);
    if (code < 0) {
        return code;
    }
    if (value == nullptr) {
        return REGLIB_E_NOT_FOUND;
    }
    if (isRefused()) {
        return REGLIB_E_FAIL;
    }
    node->children.erase(folded(name));
    return commit();
}

int Store::queryType(Key& key, const std::string& name, DataType& type) {
    type = CRegLib::eNone;
    Node* node = nullptr;
    Node* value = nullptr;
    const int code = findValue(key, name, node, value);
    if (code < 0) {
        return code;
    }
    if (value == nullptr) {
        return REGLIB_E_NOT_FOUND;
    }
    type = value->type;
    return REGLIB_OK;
}

int Store::query(Key& key, const std::string& name, DataType& type, unsigned char* buffer,
                 unsigned long* size) {
    type = CRegLib::eNone;
    Node* node = nullptr;
    Node* value = nullptr;
    const int code = findValue(key, name, node, value);
    if (code < 0) {
        return code;
    }
    if (value == nullptr) {
        return REGLIB_E_NOT_FOUND;
    }
    type = value->type;
    return readData(value->line, type, buffer, *size);
}

int Store::enumValues(Key& key, int index, std::string& name, DataType& type) {
    Node* node = nullptr;
    const int code = keyNode(key, node);
    if (code < 0) {
        return code;
    }
    const Node* child = childAt(*node, index, false);
    if (child == nullptr) {
        return REGLIB_E_NO_MORE_ITEMS;
    }
    name = child->name;
    type = child->type;
    return REGLIB_OK;
}

}  // namespace vqtorture::model
