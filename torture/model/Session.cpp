#include "model/Session.h"

using namespace VQRegLib;

namespace vqtorture::model {

int ModelSession::VQRegDestroyKeyVect(std::vector<Key*>& keys) {
    if (!m_store) {
        return REGLIB_E_NOT_INITIALIZED;
    }
    for (const Key* key : keys) {
        delete key;
    }
    keys.clear();
    return REGLIB_OK;
}

int ModelSession::ParseKeyPath(const char* path, std::vector<std::string>& names) {
    if (!m_store) {
        return REGLIB_E_NOT_INITIALIZED;
    }
    for (const std::string& name : namesOfPath(path)) {
        names.push_back(name);
    }
    return REGLIB_OK;
}

// `result` says nothing of a store that could not be opened.
std::unique_ptr<ModelSession> ModelProcess::open(const char* file, const char* root, int* result) {
    *result = REGLIB_OK;
    return std::make_unique<ModelSession>(storeOf(file, root));
}

std::shared_ptr<Store> ModelProcess::storeOf(const std::string& file, const char* root) {
    std::weak_ptr<Store>& known = m_stores[file + ":" + (root != nullptr ? root : "<DEFAULT>")];
    std::shared_ptr<Store> store = known.lock();
    if (!store) {
        store = std::make_shared<Store>(m_files, m_files.of(file), m_number);
        if (store->makeRootKey(root != nullptr ? root : "Velquist") < 0) {
            return nullptr;
        }
        known = store;
    }
    return store;
}

}  // namespace vqtorture::model
