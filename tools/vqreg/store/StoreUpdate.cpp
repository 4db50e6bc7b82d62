#include "tools/vqreg/store/StoreUpdate.h"

#include <string>
#include <vector>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/store/LockInfo.h"
#include "tools/vqreg/store/LockWatch.h"
#include "tools/vqreg/store/StoreFault.h"

namespace vqreg {

StoreUpdate::~StoreUpdate() {
    // A store that is locked in an update that shall not be written can only be left as it is: ending
    // the update would write it, and so would closing the session and opening another one.
    if (isOpen() && m_isPending) {
        m_store.abandon();
        return;
    }
    while (isOpen()) {
        endReading();
    }
    if (m_isChanged && m_store.isToBeTold()) {
        m_store.session().SendRegistryChangeNotification();
    }
}

void StoreUpdate::begin() {
    std::optional<LockWatch> watch;
    if (m_depth == 0) {
        watch.emplace(std::vector<std::string>{m_store.file()}, m_store.timeoutSeconds());
    }
    m_store.check(m_store.session().VQRegBeginUpdate());
    if (m_depth++ == 0) {
        m_before = trace();
    }
}

void StoreUpdate::beginChange() {
    begin();
    m_isPending = true;
}

void StoreUpdate::end() {
    --m_depth;
    if (m_depth == 0 && m_isPending) {
        m_isPending = false;
        m_isChanged = true;
    }
    const int code = m_store.session().VQRegEndUpdate();
    if (m_depth > 0) {
        m_store.check(code);
        return;
    }
    try {
        if (code == VQRegLib::REGLIB_E_FILE_OPEN) {
            throw writeFault(m_store.file());
        }
        m_store.check(code);
        checkWritten();
    } catch (const CommandError&) {
        m_isChanged = false;  // there is nothing to tell others
        throw;
    }
}

void StoreUpdate::endReading() {
    --m_depth;
    m_store.session().VQRegEndUpdate();
}

void StoreUpdate::announce() {
    if (m_store.session().SendRegistryChangeNotification() < 0) {
        throw CommandError(eExit::eUnavailable,
                           m_store.file() + ": the notification cannot be sent");
    }
    m_isChanged = false;
}

void StoreUpdate::reload() {
    const LockWatch watch({m_store.file()}, m_store.timeoutSeconds());
    m_store.check(m_store.session().VQRegReload());
    m_isChanged = true;
}

StoreUpdate::Trace StoreUpdate::trace() const {
    return {changeStamp(m_store.file()), FileIdentity::of(m_store.file())};
}

// The library does not look at the results of its renames.
void StoreUpdate::checkWritten() const {
    if (trace().isFailedSince(m_before)) {
        throw replaceFault(m_store.file());
    }
}

}  // namespace vqreg
