#include "kill/Deeds.h"

#include <utility>

#include "support/Handlers.h"
#include "support/Torture.h"

namespace vqtorture {

using VQRegLib::REGLIB_OK;

const char* nameOf(Deed deed) {
    switch (deed) {
        case Deed::eSet:
            return "set";
        case Deed::eUpdate:
            return "update";
        case Deed::eOpen:
            return "open";
        default:
            return "register";
    }
}

Doer::Doer(Deed deed, std::string path, Progress& progress)
    : m_deed(deed), m_path(std::move(path)), m_progress(progress) {}

void Doer::prepare() {
    if (m_deed == Deed::eOpen) {
        return;
    }
    m_session = vqtest::openSession(m_path);
    require(m_session->RootKey() != nullptr, "the session has no store");
    for (int part = 0; m_deed == Deed::eUpdate && part < kParts; ++part) {
        m_parts.push_back(std::make_unique<vqtest::CRegKey>());
        require(m_session->VQRegCreateKey(nullptr, partName(part).c_str(), *m_parts.back(), 0) ==
                    REGLIB_OK,
                "a key cannot be opened");
    }
}

bool Doer::once() {
    ++m_progress.begun;
    const int result = m_deed == Deed::eSet      ? set()
                       : m_deed == Deed::eUpdate ? update()
                       : m_deed == Deed::eOpen   ? open()
                                                 : registration();
    if (result != REGLIB_OK) {
        m_progress.failure = result;
        return false;
    }
    m_progress.done = m_progress.begun.load();
    return true;
}

int Doer::set() {
    return vqtest::setNumber(*m_session, "Set", m_progress.begun);
}

int Doer::update() {
    VQRegLib::CRegUpdate update(*m_session);
    for (const auto& part : m_parts) {
        const int result =
            m_session->VQRegSetValue(*part, "Update", static_cast<unsigned long>(m_progress.begun));
        if (result != REGLIB_OK) {
            return result;
        }
    }
    return update.end();
}

// Another spelling is another store of the process on the same key, so it opens anew each time.
int Doer::open() {
    std::string root = "Velquist";
    root.resize(8);
    for (std::size_t bit = 0; bit < root.size(); ++bit) {
        if ((m_opened.size() >> bit & 1) != 0) {
            root[bit] = static_cast<char>(root[bit] ^ 0x20);
        }
    }
    m_opened.push_back(vqtest::openSession(m_path, root.c_str()));
    return m_opened.back()->RootKey() ? REGLIB_OK : VQRegLib::REGLIB_E_NOT_INITIALIZED;
}

int Doer::registration() {
    vqtest::Handler handler;
    m_session->SetRegistryChangeHandler(&handler);
    const int result = m_session->SendRegistryChangeNotification();
    m_session->ClrRegistryChangeHandler(&handler);
    return result;
}

}  // namespace vqtorture
