#include "tools/vqreg/store/StoreSession.h"

#include <fmt/format.h>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/store/LockInfo.h"
#include "tools/vqreg/store/LockWatch.h"
#include "tools/vqreg/store/StoreImpl.h"
#include "tools/vqreg/terminal/Output.h"
#include "tools/vqreg/text/Rules.h"

namespace vqreg {

using namespace VQRegLib;

namespace {

constexpr int kFreeReadings = 5;

// Keeps what several calls read together: an update without changes writes nothing.
template <typename Impl>
class Reading {
public:
    explicit Reading(Impl& impl) : m_impl(impl) { m_impl.begin(); }
    ~Reading() {
        --m_impl.depth;
        m_impl.session->VQRegEndUpdate();
    }
    Reading(const Reading&) = delete;
    Reading& operator=(const Reading&) = delete;

private:
    Impl& m_impl;
};

void checkRule(const std::optional<std::string>& broken) {
    if (broken) {
        throw CommandError(eExit::eWrongKind, *broken);
    }
}

// A store that is locked in an update that shall not be written can only be left as it is: ending
// the update would write it, and so would closing the session and opening another one.
void abandon(std::unique_ptr<CRegLib> session) {
    static auto* const abandoned = new std::vector<std::unique_ptr<CRegLib>>;
    abandoned->push_back(std::move(session));
}

}  // namespace

StoreSession::StoreSession(const StoreOptions& options) : m_impl(std::make_unique<Impl>()) {
    m_impl->options = options;
    m_impl->file = storeFile(options);
    m_impl->root = rootName(options);
    m_impl->open();
}

StoreSession::~StoreSession() {
    if (!m_impl->session) {
        return;
    }
    if (m_impl->depth > 0 && m_impl->isPending) {
        abandon(std::move(m_impl->session));
        return;
    }
    for (; m_impl->depth > 0; --m_impl->depth) {
        m_impl->session->VQRegEndUpdate();
    }
    if (m_impl->isChanged && m_impl->options.notify) {
        m_impl->session->SendRegistryChangeNotification();
    }
}

std::vector<std::string> StoreSession::tidied(const Path& path) {
    return tidiedPath(path, [this](const Path& each) {
        const Reading reading(*m_impl);
        CRegKey handle;
        return m_impl->walk(each, handle, false) != nullptr;
    });
}

// Without the lock, so that nobody's change holds it up: what was read is of one piece when the stamp
// has not moved meanwhile. Where it keeps moving, with the lock.
std::optional<Key> StoreSession::load(const Path& given, int depth,
                                      const std::function<void()>& done) {
    const Path path = tidied(given);
    for (int attempt = 0; attempt < kFreeReadings; ++attempt) {
        const auto before = changeStamp(m_impl->file);
        std::optional<Key> key = m_impl->load(path, depth, done);
        if (m_impl->depth > 0 || changeStamp(m_impl->file) == before) {
            return key;
        }
    }
    const Reading reading(*m_impl);
    return m_impl->load(path, depth, done);
}

std::optional<Key> StoreSession::Impl::load(const Path& path, int depthLeft,
                                            const std::function<void()>& done) {
    CRegKey handle;
    CRegKey* const key = walk(path, handle, false);
    if (!key) {
        return std::nullopt;
    }
    Key result;
    // The stored spelling, from "[Top/.../Name]".
    const char* const full = key->GetKeyFullName();
    const std::string text = full ? full : "";
    const std::string inner = text.substr(0, text.find(']'));
    const std::size_t last = inner.find_last_of("[/");
    result.name = last == std::string::npos ? inner : inner.substr(last + 1);
    read(
        *key, path, result, depthLeft, done ? done : [] {});
    return result;
}

std::optional<Value> StoreSession::value(const Path& given, const std::string& name) {
    const Path path = tidied(given);
    CRegKey handle;
    CRegKey* const key = m_impl->walk(path, handle, false);
    if (!key || name.find('\0') != std::string::npos) {
        return std::nullopt;
    }
    Value result;
    result.name = name;
    const int code = m_impl->query(*key, result);
    if (code == REGLIB_E_NOT_FOUND) {
        return std::nullopt;
    }
    if (code == REGLIB_E_NOT_A_VALUE) {
        throw CommandError(eExit::eWrongKind, fmt::format("\"{}\" is a sub key of {}, not a value",
                                                          printable(name), nameOfKey(path)));
    }
    m_impl->check(code);
    return result;
}

bool StoreSession::hasKey(const Path& path) {
    CRegKey handle;
    return m_impl->walk(tidied(path), handle, false) != nullptr;
}

void StoreSession::begin() {
    m_impl->begin();
}

void StoreSession::end() {
    m_impl->end();
}

void StoreSession::createKey(const Path& given) {
    const Path path = tidied(given);
    checkRule(brokenRuleOfKeyPath(m_impl->ruleRoot(), path));
    m_impl->beginChange();
    CRegKey handle;
    m_impl->walk(path, handle, true);
    end();
}

bool StoreSession::set(const Path& given, const Value& value) {
    const Path path = tidied(given);
    checkRule(brokenRuleOfKeyPath(m_impl->ruleRoot(), path));
    checkRule(brokenRuleOfValue(value));
    m_impl->beginChange();
    CRegKey handle;
    const bool isNew = !m_impl->walk(path, handle, false);
    m_impl->write(*m_impl->walk(path, handle, true), path, value);
    end();
    return isNew;
}

bool StoreSession::removeValue(const Path& given, const std::string& name) {
    const Path path = tidied(given);
    if (!value(path, name)) {
        return false;
    }
    m_impl->beginChange();
    CRegKey handle;
    CRegKey* const key = m_impl->walk(path, handle, false);
    const int code =
        key ? m_impl->session->VQRegDeleteValue(*key, name.c_str()) : REGLIB_E_NOT_FOUND;
    if (code != REGLIB_E_NOT_FOUND) {
        m_impl->check(code);
    }
    end();
    return code != REGLIB_E_NOT_FOUND;
}

bool StoreSession::removeKey(const Path& given) {
    const Path path = tidied(given);
    if (!hasKey(path)) {
        return false;
    }
    m_impl->beginChange();
    {
        CRegKey handle;
        CRegKey* const key = m_impl->walk(path, handle, false);
        if (key) {
            m_impl->removeBelow(*key, path);
        }
    }
    if (!path.empty()) {
        CRegKey handle;
        const Path parentPath(path.begin(), path.end() - 1);
        CRegKey* const parent = m_impl->walk(parentPath, handle, false);
        if (parent) {
            m_impl->check(m_impl->session->VQRegDeleteKey(*parent, path.back().c_str()));
        }
    }
    end();
    return true;
}

void StoreSession::announce() {
    if (m_impl->session->SendRegistryChangeNotification() < 0) {
        throw CommandError(eExit::eUnavailable, m_impl->file + ": the notification cannot be sent");
    }
    m_impl->isChanged = false;
}

void StoreSession::reload() {
    const LockWatch watch({m_impl->file}, m_impl->options.timeoutSeconds);
    m_impl->check(m_impl->session->VQRegReload());
    m_impl->isChanged = true;
}

CRegLib& StoreSession::session() {
    return *m_impl->session;
}

}  // namespace vqreg
