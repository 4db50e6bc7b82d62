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

void ModelSession::SetRegistryChangeHandler(const ModelHandler* handler) {
    if (m_store && handler != nullptr) {
        m_store->changeHandlers().insert(handler);
    }
}

void ModelSession::ClrRegistryChangeHandler(const ModelHandler* handler) {
    if (m_store) {
        m_store->changeHandlers().erase(handler);
    }
}

bool ModelSession::isRegistered(const ModelHandler& handler) const {
    return m_store && m_store->changeHandlers().count(&handler) != 0;
}

int ModelUpdate::end() {
    if (m_session != nullptr) {
        m_result = m_session->VQRegEndUpdate();
        m_session = nullptr;
    }
    return m_result;
}

// `result` says nothing of a store that could not be opened.
std::unique_ptr<ModelSession> ModelProcess::open(const char* file, const char* root, int* result) {
    *result = REGLIB_OK;
    return std::make_unique<ModelSession>(storeOf(file, root));
}

// Of a store with a handler all are told that its file has changed, those of other stores are not.
vqtest::Fields ModelProcess::lookWhoIsTold(
    const ModelSession& session, const char* file,
    const std::array<ModelHandler, kChangeHandlers>& handlers) const {
    if (session.RootKey() == nullptr || m_files.isHidden() || !m_files.of(file).text) {
        return {"nobody"};
    }
    vqtest::Fields told;
    for (const ModelHandler& handler : handlers) {
        told.emplace_back(session.isRegistered(handler) ? "told" : "not told");
    }
    return told;
}

bool ModelProcess::findsRootKey(const char* file, const char* root) const {
    const File& opened = m_files.of(file);
    if (m_files.isHidden() || !opened.text) {
        return false;
    }
    Tree tree;
    return tree.merge(*opened.text) < 0 ||
           !Store::needsKey(tree.top(), root != nullptr ? root : "Velquist");
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
