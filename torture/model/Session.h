// A session of the model, with the interface of VQRegLib::CRegLib, and the process that it is in.
#ifndef VQTORTURE_MODEL_SESSION_H
#define VQTORTURE_MODEL_SESSION_H

#include <array>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "model/Store.h"

namespace vqtorture::model {

class ModelHandler {};

class ModelSession {
public:
    explicit ModelSession(std::shared_ptr<Store> store) : m_store(std::move(store)) {}

    Key* RootKey() const { return m_store ? m_store->rootKey() : nullptr; }
    std::string dump() const { return m_store ? m_store->dump() : std::string(); }

    int VQRegCreateKey(Key* parent, const char* subKey, Key& key, int create) {
        return call(&Store::createKey, parent, subKey, key, create);
    }
    int VQRegDeleteKey(Key& key, const char* subKey) {
        return call(&Store::deleteKey, key, subKey);
    }
    int VQRegDeleteValue(Key& key, const char* name) {
        return call(&Store::deleteValue, key, name);
    }
    int VQRegSetValue(Key& key, const char* name, unsigned long value) {
        return call(&Store::setDword, key, name, value);
    }
    int VQRegSetValue(Key& key, const char* name, const char* value) {
        return call(&Store::setString, key, name, value);
    }
    int VQRegSetValue(Key& key, const char* name, const unsigned char* data, unsigned long size) {
        return call(&Store::setBinary, key, name, data, size);
    }
    int VQRegQueryValueType(Key& key, const char* name, DataType& type) {
        return call(&Store::queryType, key, name, type);
    }
    int VQRegQueryValue(Key& key, const char* name, DataType& type, unsigned char* buffer,
                        unsigned long* size) {
        return call(&Store::query, key, name, type, buffer, size);
    }
    int VQRegEnumKeys(Key& key, int index, std::string& name) {
        return call(&Store::enumKeys, key, index, name);
    }
    int VQRegEnumValues(Key& key, int index, std::string& name, DataType& type) {
        return call(&Store::enumValues, key, index, name, type);
    }
    int VQRegCreateKeyVect(Key* parent, const char* path, std::vector<Key*>& keys,
                           std::vector<std::string>& names, int create) {
        return call(&Store::createKeyVect, parent, path, keys, names, create);
    }
    int VQRegBeginUpdate() { return call(&Store::beginUpdate); }
    int VQRegEndUpdate() { return call(&Store::endUpdate); }
    int VQRegReload() { return call(&Store::reload); }

    void SetRegistryChangeHandler(const ModelHandler* handler);
    void ClrRegistryChangeHandler(const ModelHandler* handler);
    /// Tells nobody of anything that a caller sees at once.
    static int SendRegistryChangeNotification() { return VQRegLib::REGLIB_OK; }
    bool isRegistered(const ModelHandler& handler) const;

    int VQRegDestroyKeyVect(std::vector<Key*>& keys);
    int ParseKeyPath(const char* path, std::vector<std::string>& names);

private:
    // Without a store nothing happens.
    template <typename Operation, typename... Arguments>
    int call(Operation operation, Arguments&&... arguments) {
        return m_store ? (*m_store.*operation)(std::forward<Arguments>(arguments)...)
                       : VQRegLib::REGLIB_E_NOT_INITIALIZED;
    }

    std::shared_ptr<Store> m_store;
};

/// What CRegUpdate is: an update that ends once, at the latest with the object.
class ModelUpdate {
public:
    explicit ModelUpdate(ModelSession& session)
        : m_session(&session), m_result(session.VQRegBeginUpdate()) {
        if (m_result < 0) {
            m_session = nullptr;
        }
    }
    ~ModelUpdate() { end(); }
    ModelUpdate(const ModelUpdate&) = delete;
    ModelUpdate& operator=(const ModelUpdate&) = delete;

    int result() const { return m_result; }
    int end();

private:
    ModelSession* m_session;  // null where there is nothing to end
    int m_result;
};

/// A process of the model: sessions that name file and root key alike share a store.
class ModelProcess {
public:
    using Session = ModelSession;
    using Key = model::Key;
    using Update = ModelUpdate;
    using Handler = ModelHandler;

    ModelProcess(Files& files, int number) : m_files(files), m_number(number) {}

    std::unique_ptr<ModelSession> open(const char* file, const char* root, int* result);
    static std::string dumpOf(ModelSession& session) { return session.dump(); }
    vqtest::Fields lookWhoIsTold(const ModelSession& session, const char* file,
                                 const std::array<ModelHandler, kChangeHandlers>& handlers) const;

    /// Whether the opening of a session finds its root key in the file, so that it makes nothing. A
    /// malformed file counts as well: there is no store then.
    bool findsRootKey(const char* file, const char* root) const;

private:
    std::shared_ptr<Store> storeOf(const std::string& file, const char* root);

    Files& m_files;
    int m_number;
    std::map<std::string, std::weak_ptr<Store>> m_stores;
};

}  // namespace vqtorture::model

#endif  // VQTORTURE_MODEL_SESSION_H
