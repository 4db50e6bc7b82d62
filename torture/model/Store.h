// What the sessions of one process on one file and root key share: the tree, the handles, and what is known
// of the file. The operations have the arguments and results of VQRegLib::CRegLib.
#ifndef VQTORTURE_MODEL_STORE_H
#define VQTORTURE_MODEL_STORE_H

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "model/Files.h"
#include "model/Tree.h"

namespace vqtorture::model {

/// What a handle says of itself, and what the store knows it by.
struct Record {
    Store* store = nullptr;  ///< null once the store is gone
    unsigned long id = 0;
    std::string name = {};
    std::string fullName = {};
    int references = 0;
};

class ModelHandler;

class Key {
public:
    Key() = default;
    ~Key() { hold(nullptr); }
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;

    const char* GetKeyName() const { return m_record ? m_record->name.c_str() : nullptr; }
    const char* GetKeyFullName() const { return m_record ? m_record->fullName.c_str() : nullptr; }
    unsigned long GetKeyHandleID() const { return m_record ? m_record->id : 0; }

    /// Takes another record; the one before is unregistered when its last reference goes.
    void hold(std::shared_ptr<Record> record);
    Record* record() const { return m_record.get(); }

private:
    std::shared_ptr<Record> m_record;
};

class Store {
public:
    Store(Files& files, File& file, int process);
    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    /// The last part of the construction: makes the root key where it is missing.
    int makeRootKey(const std::string& path);
    Key* rootKey() { return &m_rootKey; }

    int createKey(Key* parent, const char* path, Key& key, int create);
    int deleteKey(Key& key, const char* path);
    int createKeyVect(Key* parent, const char* path, std::vector<Key*>& keys,
                      std::vector<std::string>& names, int create);
    int enumKeys(Key& key, int index, std::string& name);

    int setString(Key& key, const std::string& name, const char* value);
    int setDword(Key& key, const std::string& name, unsigned long value);
    int setBinary(Key& key, const std::string& name, const unsigned char* data, unsigned long size);
    int deleteValue(Key& key, const std::string& name);
    int queryType(Key& key, const std::string& name, DataType& type);
    int query(Key& key, const std::string& name, DataType& type, unsigned char* buffer,
              unsigned long* size);
    int enumValues(Key& key, int index, std::string& name, DataType& type);

    int beginUpdate();
    int endUpdate();
    int reload();
    std::string dump() const { return m_tree.dump(); }

    std::set<const ModelHandler*>& changeHandlers() { return m_changeHandlers; }

    /// Whether a path leads to a key that would have to be made.
    static bool needsKey(const Node& start, const std::string& path);

    /// Forgets a handle.
    void unregister(unsigned long id) { m_handles.erase(id); }

private:
    struct Handle {
        Node* node;
        std::shared_ptr<Record> record;
    };

    int bringUpToDate();
    int commit();
    int write();
    bool isRefused() const;
    Node* nodeOf(const Key& key) const;
    int keyNode(const Key& key, Node*& node);
    int findValue(const Key& key, const std::string& name, Node*& node, Node*& value);
    int findKey(Node& start, const std::string& path, Key& key, int create);
    int set(Key& key, const std::string& name, const std::string& line, DataType type);
    static Node* childAt(const Node& node, int index, bool isKey);
    std::shared_ptr<Record> enroll(Node& node, const std::string& name);

    Files& m_files;
    File& m_file;
    int m_process;
    Tree m_tree;
    std::uint64_t m_stamp = 0;
    bool m_foundLost = false;     // the file was missing or empty, the backup was not
    bool m_hasSeenValue = false;  // in a text that was read or written
    int m_updates = 0;            // depth of the update
    bool m_isChanged = false;     // in the update
    bool m_isUnwritten = false;   // the last writing has failed
    std::map<unsigned long, Handle> m_handles;
    unsigned long m_nextId = 1;
    std::set<const ModelHandler*> m_changeHandlers;
    Key m_rootKey;  // after what it uses when it goes
};

}  // namespace vqtorture::model

#endif  // VQTORTURE_MODEL_STORE_H
