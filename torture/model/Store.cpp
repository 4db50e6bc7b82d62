#include "model/Store.h"

using namespace VQRegLib;

namespace vqtorture::model {

void Key::hold(std::shared_ptr<Record> record) {
    if (m_record && --m_record->references == 0 && m_record->store != nullptr) {
        m_record->store->unregister(m_record->id);
    }
    m_record = std::move(record);
}

Store::Store(Files& files, File& file, int process)
    : m_files(files), m_file(file), m_process(process) {}

// Handles that outlive their store belong to none.
Store::~Store() {
    m_rootKey.hold(nullptr);
    for (auto& [id, handle] : m_handles) {
        *handle.record = Record{nullptr, 0, "", "", handle.record->references};
    }
}

int Store::makeRootKey(const std::string& path) {
    Key top;
    return createKey(&top, path.c_str(), m_rootKey, 1);
}

// Reads the file when somebody has written it since. A file that is missing is made from the tree, and
// it does not matter whether that succeeds.
int Store::bringUpToDate() {
    if (m_stamp == m_file.stamp) {
        return REGLIB_OK;
    }
    if (m_files.isHidden() || !m_file.text) {
        m_foundLost |= !m_files.isHidden() && m_file.isLost();
        write();
        return REGLIB_OK;
    }
    m_foundLost |= m_file.isLost();
    const int code = m_tree.merge(*m_file.text);
    if (code >= 0) {
        m_stamp = m_file.stamp;
        m_hasSeenValue |= hasValue(*m_file.text);
    }
    return code;
}

// In an update changes wait for its end.
int Store::commit() {
    if (m_updates > 0) {
        m_isChanged = true;
        return REGLIB_OK;
    }
    return write();
}

// The opener of files says of a missing directory what it says of a missing file.
int Store::write() {
    if (isRefused()) {
        return REGLIB_E_FAIL;
    }
    m_isUnwritten = m_files.isHidden();
    if (m_isUnwritten) {
        return REGLIB_E_NOT_FOUND;
    }
    const std::string text = m_tree.text();
    m_file.replace(text, m_foundLost && !m_hasSeenValue);
    m_hasSeenValue |= hasValue(text);
    m_stamp = m_file.stamp;
    return REGLIB_OK;
}

// A thread that has an update on the file cannot change it through another store.
bool Store::isRefused() const {
    return m_file.updating != nullptr && m_file.updating != this &&
           m_file.updatingProcess == m_process;
}

int Store::beginUpdate() {
    if (isRefused()) {
        return REGLIB_E_FAIL;
    }
    const int code = bringUpToDate();
    if (code < 0) {
        return code;
    }
    if (m_stamp != m_file.stamp) {
        return REGLIB_E_FILE_OPEN;  // there was no file, and none could be made
    }
    ++m_updates;
    m_file.updating = this;
    m_file.updatingProcess = m_process;
    return REGLIB_OK;
}

// What an earlier writing could not write is written by the next update, too, whatever that changes.
int Store::endUpdate() {
    if (m_updates == 0) {
        return REGLIB_E_FAIL;
    }
    if (--m_updates > 0) {
        return REGLIB_OK;
    }
    m_file.updating = nullptr;
    const bool isChanged = m_isChanged;
    m_isChanged = false;
    return isChanged || m_isUnwritten ? write() : REGLIB_OK;
}

int Store::reload() {
    if (m_file.updating != nullptr && m_file.updatingProcess == m_process) {
        return REGLIB_E_FAIL;
    }
    ++m_file.stamp;
    return REGLIB_OK;
}

// The node of a handle; null for one that is not registered, or whose key has been deleted.
Node* Store::nodeOf(const Key& key) const {
    const auto found = m_handles.find(key.GetKeyHandleID());
    const bool isThere = found != m_handles.end() && !found->second.node->isDeleted;
    return isThere ? found->second.node : nullptr;
}

// The opening of all operations on a key that is given by its handle.
int Store::keyNode(const Key& key, Node*& node) {
    const int code = bringUpToDate();
    if (code < 0) {
        return code;
    }
    node = nodeOf(key);
    return node == nullptr ? REGLIB_E_INVALID_HANDLE : REGLIB_OK;
}

std::shared_ptr<Record> Store::enroll(Node& node, const std::string& name) {
    const unsigned long id = m_nextId++;
    auto record = std::make_shared<Record>(Record{this, id, name, node.fullName, 0});
    m_handles[id] = Handle{&node, record};
    return record;
}

bool Store::needsKey(const Node& start, const std::string& path) {
    const Node* node = &start;
    for (const std::string& name : namesOfPath(path)) {
        node = node->child(name);
        if (node == nullptr || !node->isKey) {
            return node == nullptr;
        }
    }
    return false;
}

// Each name of the path fills the handle in turn, and uses up an id. A name that is missing does not end
// the walk: a later one that is a value's in the key reached last decides the result.
int Store::findKey(Node& start, const std::string& path, Key& key, int create) {
    if (create != 0 && isRefused() && needsKey(start, path)) {
        return REGLIB_E_FAIL;
    }
    Node* node = &start;
    int code = REGLIB_OK;
    bool isChanged = false;
    for (const std::string& name : namesOfPath(path)) {
        Node* child = node->child(name);
        if (child != nullptr && !child->isKey) {
            code = REGLIB_E_NOT_A_KEY;
        }
        if (code < 0) {
            continue;
        }
        if (child == nullptr && create == 0) {
            code = REGLIB_E_KEY_NOT_FOUND;
            continue;
        }
        if (child == nullptr) {
            child = &m_tree.addKey(*node, name, Tree::fullNameFor(*node, name));
            isChanged = true;
        }
        key.hold(enroll(*child, name));
        node = child;
    }
    return code >= 0 && isChanged ? commit() : code;
}

int Store::createKey(Key* parent, const char* path, Key& key, int create) {
    const int imported = bringUpToDate();
    if (imported < 0) {
        return imported;
    }
    Node* start = nodeOf(parent != nullptr ? *parent : m_rootKey);
    const int code = findKey(start != nullptr ? *start : m_tree.top(), path, key, create);
    if (code >= 0) {
        ++key.record()->references;
    }
    return code;
}

int Store::deleteKey(Key& key, const char* path) {
    const int imported = bringUpToDate();
    if (imported < 0) {
        return imported;
    }
    Node* start = nodeOf(key);
    Key found;
    int code = findKey(start != nullptr ? *start : m_tree.top(), path, found, 0);
    if (code >= 0) {
        code = bringUpToDate();
    }
    if (code < 0) {
        return code;
    }
    Node& node = *nodeOf(found);
    if (!node.children.empty()) {
        return REGLIB_E_KEY_NOT_EMPTY;
    }
    if (isRefused()) {
        return REGLIB_E_FAIL;
    }
    Tree::remove(node);
    node.isDeleted = true;
    unregister(found.GetKeyHandleID());
    return commit();
}

// Succeeds whatever happens. The name of a level is the last one that was enumerated up to the match.
int Store::createKeyVect(Key* parent, const char* path, std::vector<Key*>& keys,
                         std::vector<std::string>& names, int create) {
    std::vector<Key*> newKeys;
    std::vector<std::string> newNames = namesOfPath(path);
    Key* above = parent != nullptr ? parent : &m_rootKey;
    for (std::string& name : newNames) {
        auto key = std::make_unique<Key>();
        if (createKey(above, name.c_str(), *key, create) < 0) {
            for (const Key* made : newKeys) {
                delete made;
            }
            return REGLIB_OK;
        }
        std::string candidate = name;
        for (int i = 0; enumKeys(*above, i, candidate) >= 0 && folded(candidate) != folded(name);) {
            ++i;
        }
        name = candidate;
        newKeys.push_back(key.release());
        above = newKeys.back();
    }
    keys = newKeys;
    names = newNames;
    return REGLIB_OK;
}

Node* Store::childAt(const Node& node, int index, bool isKey) {
    int passed = 0;
    for (const auto& [name, child] : node.children) {
        if (child->isKey == isKey && passed++ == index) {
            return child;
        }
    }
    return nullptr;
}

int Store::enumKeys(Key& key, int index, std::string& name) {
    Node* node = nullptr;
    const int code = keyNode(key, node);
    if (code < 0) {
        return code;
    }
    const Node* child = childAt(*node, index, true);
    if (child == nullptr) {
        return REGLIB_E_NO_MORE_ITEMS;
    }
    name = child->name;
    return REGLIB_OK;
}

}  // namespace vqtorture::model
