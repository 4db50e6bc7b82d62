#include "tools/vqreg/store/StoreKeys.h"

#include <fmt/format.h>

#include <string_view>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/terminal/Output.h"
#include "tools/vqreg/text/Path.h"
#include "tools/vqreg/text/Shown.h"

namespace vqreg {

using namespace VQRegLib;

namespace {

// The library splits names at these and ends them at a NUL, so no key of such a name is found.
bool isReachable(const std::string& name) {
    return name.find_first_of(std::string_view("/\\\0", 3)) == std::string::npos;
}

CommandError notAValue(const Path& path, const std::string& name) {
    return {eExit::eWrongKind, fmt::format("\"{}\" is a sub key of {}, not a value",
                                           printable(name), nameOfKey(path))};
}

}  // namespace

// One name at a time: asked for a whole path, the library may find a name of its end in the place
// where its middle is missing.
CRegKey* StoreKeys::step(CRegKey& from, const Path& path, std::size_t at, CRegKey& key,
                         bool create) {
    if (!isReachable(path[at])) {
        return nullptr;
    }
    const int code = m_store.session().VQRegCreateKey(&from, path[at].c_str(), key, create ? 1 : 0);
    if (code == REGLIB_E_KEY_NOT_FOUND) {
        return nullptr;
    }
    if (code == REGLIB_E_NOT_A_KEY) {
        const Path parent(path.begin(), path.begin() + static_cast<std::ptrdiff_t>(at));
        throw CommandError(eExit::eWrongKind, fmt::format("\"{}\" is a value of {}, not a key",
                                                          printable(path[at]), nameOfKey(parent)));
    }
    m_store.check(code);
    return &key;
}

CRegKey* StoreKeys::walk(const Path& path, CRegKey& key, bool create) {
    CRegKey* at = &m_store.start();
    for (std::size_t index = 0; at && index < path.size(); ++index) {
        at = step(*at, path, index, key, create);
    }
    return at;
}

CRegKey& StoreKeys::make(const Path& path, CRegKey& key) {
    CRegKey* const made = walk(path, key, true);
    if (!made) {
        throw CommandError(eExit::eWrongKind, nameOfKey(path) + " cannot be made");
    }
    return *made;
}

std::optional<Key> StoreKeys::load(const Path& path, int depthLeft,
                                   const std::function<void()>& done) {
    CRegKey handle;
    CRegKey* const key = find(path, handle);
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

std::optional<Value> StoreKeys::value(const Path& path, const std::string& name) {
    CRegKey handle;
    CRegKey* const key = find(path, handle);
    if (!key || name.find('\0') != std::string::npos) {
        return std::nullopt;
    }
    Value result;
    result.name = name;
    const int code = m_contents.query(*key, result);
    if (code == REGLIB_E_NOT_FOUND) {
        return std::nullopt;
    }
    if (code == REGLIB_E_NOT_A_VALUE) {
        throw notAValue(path, name);
    }
    m_store.check(code);
    return result;
}

void StoreKeys::read(CRegKey& key, const Path& path, Key& into, int depthLeft,
                     const std::function<void()>& done) {
    for (Value& value : m_contents.valueNames(key)) {
        m_store.check(m_contents.query(key, value));
        into.values.emplace_hint(into.values.end(), folded(value.name), std::move(value));
        done();
    }
    Path childPath = path;
    childPath.emplace_back();
    for (const std::string& name : m_contents.keyNames(key)) {
        Key& child = into.keys[folded(name)];
        child.name = name;
        childPath.back() = name;
        done();
        if (depthLeft == 1) {
            continue;
        }
        CRegKey handle;
        if (step(key, childPath, path.size(), handle, false)) {
            read(handle, childPath, child, depthLeft - 1, done);
        } else {
            note(nameOfKey(childPath) + " cannot be opened: \"\\\" separates names");
        }
    }
}

void StoreKeys::write(const Path& path, const Value& value) {
    CRegKey handle;
    CRegKey& key = make(path, handle);
    const int code = m_contents.set(key, value);
    if (code == REGLIB_E_NOT_A_VALUE) {
        throw notAValue(path, value.name);
    }
    m_store.check(code);
}

bool StoreKeys::removeValue(const Path& path, const std::string& name) {
    CRegKey handle;
    CRegKey* const key = find(path, handle);
    const int code =
        key ? m_store.session().VQRegDeleteValue(*key, name.c_str()) : REGLIB_E_NOT_FOUND;
    if (code == REGLIB_E_NOT_FOUND) {
        return false;
    }
    m_store.check(code);
    return true;
}

void StoreKeys::removeKey(const Path& path) {
    {
        CRegKey handle;
        if (CRegKey* const key = find(path, handle)) {
            removeBelow(*key, path);
        }
    }
    if (!path.empty()) {
        CRegKey handle;
        if (CRegKey* const parent = find(Path(path.begin(), path.end() - 1), handle)) {
            m_store.check(m_store.session().VQRegDeleteKey(*parent, path.back().c_str()));
        }
    }
}

void StoreKeys::removeBelow(CRegKey& key, const Path& path) {
    for (const Value& value : m_contents.valueNames(key)) {
        m_store.check(m_store.session().VQRegDeleteValue(key, value.name.c_str()));
    }
    for (const std::string& name : m_contents.keyNames(key)) {
        Path childPath = path;
        childPath.push_back(name);
        {
            CRegKey child;
            if (!step(key, childPath, path.size(), child, false)) {
                throw CommandError(eExit::eWrongKind, nameOfKey(childPath) +
                                                          " cannot be removed: \"\\\" separates "
                                                          "names; mend the file by hand");
            }
            removeBelow(child, childPath);
        }
        m_store.check(m_store.session().VQRegDeleteKey(key, name.c_str()));
    }
}

}  // namespace vqreg
