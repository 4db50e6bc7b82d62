#include "tools/vqreg/store/StoreSession.h"

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/store/LockInfo.h"
#include "tools/vqreg/store/StoreFile.h"
#include "tools/vqreg/text/Rules.h"

namespace vqreg {

using VQRegLib::CRegKey;

namespace {

constexpr int kFreeReadings = 5;

void checkRule(const std::optional<std::string>& broken) {
    if (broken) {
        throw CommandError(eExit::eWrongKind, *broken);
    }
}

}  // namespace

StoreSession::StoreSession(const StoreOptions& options)
    : m_store(options), m_keys(m_store), m_update(m_store) {}

Path StoreSession::tidied(const Path& path) {
    return tidiedPath(path, [this](const Path& each) {
        const Reading reading(m_update);
        CRegKey handle;
        return m_keys.find(each, handle) != nullptr;
    });
}

// Without the lock, so that nobody's change holds it up: what was read is of one piece when the stamp
// has not moved meanwhile. Where it keeps moving, with the lock.
std::optional<Key> StoreSession::load(const Path& given, int depth,
                                      const std::function<void()>& done) {
    const Path path = tidied(given);
    for (int attempt = 0; attempt < kFreeReadings; ++attempt) {
        const auto before = changeStamp(m_store.file());
        std::optional<Key> key = m_keys.load(path, depth, done);
        if (m_update.isOpen() || changeStamp(m_store.file()) == before) {
            return key;
        }
    }
    const Reading reading(m_update);
    return m_keys.load(path, depth, done);
}

Key StoreSession::loadValues(const Path& path) {
    std::optional<Key> key = load(path, 1);
    if (!key) {
        throw CommandError(eExit::eNegative, nameOfKey(path) + " does not exist");
    }
    return std::move(*key);
}

std::optional<Value> StoreSession::value(const Path& given, const std::string& name) {
    return m_keys.value(tidied(given), name);
}

bool StoreSession::hasKey(const Path& path) {
    CRegKey handle;
    return m_keys.find(tidied(path), handle) != nullptr;
}

void StoreSession::begin() {
    m_update.begin();
}

void StoreSession::end() {
    m_update.end();
}

void StoreSession::createKey(const Path& given) {
    const Path path = tidied(given);
    checkRule(brokenRuleOfKeyPath(m_store.ruleRoot(), path));
    m_update.beginChange();
    CRegKey handle;
    m_keys.make(path, handle);
    end();
}

bool StoreSession::set(const Path& given, const Value& value) {
    const Path path = tidied(given);
    checkRule(brokenRuleOfKeyPath(m_store.ruleRoot(), path));
    checkRule(brokenRuleOfValue(value));
    m_update.beginChange();
    CRegKey handle;
    const bool isNew = !m_keys.find(path, handle);
    m_keys.write(path, value);
    end();
    return isNew;
}

bool StoreSession::removeValue(const Path& given, const std::string& name) {
    const Path path = tidied(given);
    if (!value(path, name)) {
        return false;
    }
    m_update.beginChange();
    const bool isRemoved = m_keys.removeValue(path, name);
    end();
    return isRemoved;
}

bool StoreSession::removeKey(const Path& given) {
    const Path path = tidied(given);
    if (!hasKey(path)) {
        return false;
    }
    m_update.beginChange();
    m_keys.removeKey(path);
    end();
    return true;
}

void StoreSession::apply(const std::vector<Change>& changes, const std::function<void()>& done) {
    for (const bool deletes : {true, false}) {
        for (const Change& change : changes) {
            if ((change.kind == Change::eKind::eDeleted) != deletes) {
                continue;
            }
            if (change.isOfKey()) {
                // A key takes all that is below it along; nothing is left to do for that later.
                deletes ? static_cast<void>(removeKey(change.path)) : createKey(change.path);
            } else if (deletes) {
                removeValue(change.path, change.value().name);
            } else {
                set(change.path, *change.after);
            }
            if (done) {
                done();
            }
        }
    }
}

void StoreSession::announce() {
    m_update.announce();
}

void StoreSession::reload() {
    m_update.reload();
}

}  // namespace vqreg
