// The library's calls.
#include "tools/vqreg/store/StoreImpl.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <string_view>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/store/LockInfo.h"
#include "tools/vqreg/store/LockWatch.h"
#include "tools/vqreg/store/StoreFault.h"
#include "tools/vqreg/terminal/Output.h"
#include "tools/vqreg/text/Rules.h"

namespace vqreg {

using namespace VQRegLib;

namespace {

// The library splits names at these and ends them at a NUL, so no key of such a name is found.
bool isReachable(const std::string& name) {
    return name.find_first_of(std::string_view("/\\\0", 3)) == std::string::npos;
}

// Names are collected before anything is done with them: looking elsewhere in between makes the
// library count from the start again, and deleting would shift them.
template <typename Enumerate>
void forEachName(Enumerate&& enumerate, int& code) {
    for (int index = 0; (code = enumerate(index)) >= 0; ++index) {
    }
    if (code == REGLIB_E_NO_MORE_ITEMS) {
        code = REGLIB_OK;
    }
}

// The first session of a process looks into the default store too, if it can be opened.
std::vector<std::string> lockedFiles(const std::string& file) {
    try {
        return {file, storeFile({})};
    } catch (const CommandError&) {
        return {file};
    }
}

}  // namespace

void StoreSession::Impl::check(int code) const {
    if (code < 0) {
        throw codeFault(file, root, code);
    }
}

void StoreSession::Impl::open() {
    for (const std::string& name : root.empty() ? Path{""} : splitPath("/" + root)) {
        if (const auto broken = brokenRuleOfKeyName(name)) {
            throw CommandError(eExit::eWrongKind, "--root: " + *broken);
        }
    }
    if (const auto fault = options.create ? nameFault(file) : std::nullopt) {
        throw *fault;
    }
    if (!options.create && (options.file || std::filesystem::exists(file))) {
        const std::string text = readStoreFile(file, root);
        if (!options.wholeFile && !hasRootKey(text, root)) {
            throw missingRootFault(file, root, text);
        }
    }
    checkNotLost();
    try {
        const LockWatch watch(lockedFiles(file), options.timeoutSeconds);
        session = std::make_unique<CRegLib>(options.file ? file.c_str() : nullptr, root.c_str(),
                                            CRegLib::eLocationDefault, nullptr);
    } catch (const VQException&) {
        throw CommandError(eExit::eUnavailable, file + ": there is no memory to open the store");
    }
    if (!session->RootKey()) {
        throw openFault(file, root);
    }
    // Opening makes it where it is missing.
    if (options.create && !hasRootKey(readStoreFile(file, root), root)) {
        throw replaceFault(file);
    }
}

// The library would make a fresh file where there is none, and change by change the backup would go.
void StoreSession::Impl::checkNotLost() const {
    if (!options.create && std::filesystem::exists(file)) {
        return;
    }
    const auto stamp = changeStamp(file);
    const auto hint = lostTextHint(file);
    // In the middle of a change the file may be missing, and the library mends that when the process
    // that made it has died there.
    const bool isChanging = stamp != changeStamp(file) || (stamp && *stamp % 2 != 0);
    if (hint && !isChanging) {
        throw CommandError(
            eExit::eUnavailable,
            fmt::format("{}: {}; removing the backup makes room for a new store", file, *hint));
    }
}

void StoreSession::Impl::begin() {
    std::optional<LockWatch> watch;
    if (depth == 0) {
        watch.emplace(std::vector<std::string>{file}, options.timeoutSeconds);
    }
    check(session->VQRegBeginUpdate());
    if (depth++ == 0) {
        before = trace();
    }
}

StoreSession::Impl::Trace StoreSession::Impl::trace() const {
    Trace now;
    now.stamp = changeStamp(file);
    struct stat status {};
    if (::stat(file.c_str(), &status) == 0) {
        now.device = status.st_dev;
        now.inode = status.st_ino;
        now.modified = status.st_mtim;
    }
    return now;
}

void StoreSession::Impl::beginChange() {
    begin();
    isPending = true;
}

void StoreSession::Impl::end() {
    --depth;
    if (depth == 0 && isPending) {
        isPending = false;
        isChanged = true;
    }
    const int code = session->VQRegEndUpdate();
    if (depth > 0) {
        check(code);
        return;
    }
    try {
        if (code == REGLIB_E_FILE_OPEN) {
            throw writeFault(file);
        }
        check(code);
        checkWritten(before);
    } catch (const CommandError&) {
        isChanged = false;  // there is nothing to tell others
        throw;
    }
}

// The library does not look at the results of its renames.
void StoreSession::Impl::checkWritten(const Trace& earlier) const {
    const Trace now = trace();
    if (now.isFailedSince(earlier)) {
        throw replaceFault(file);
    }
}

// One name at a time: asked for a whole path, the library may find a name of its end in the place
// where its middle is missing.
CRegKey* StoreSession::Impl::step(CRegKey& from, const Path& path, std::size_t at, CRegKey& key,
                                  bool create) {
    if (!isReachable(path[at])) {
        return nullptr;
    }
    const int code = session->VQRegCreateKey(&from, path[at].c_str(), key, create ? 1 : 0);
    if (code == REGLIB_E_KEY_NOT_FOUND) {
        return nullptr;
    }
    if (code == REGLIB_E_NOT_A_KEY) {
        const Path parent(path.begin(), path.begin() + static_cast<std::ptrdiff_t>(at));
        throw CommandError(eExit::eWrongKind, fmt::format("\"{}\" is a value of {}, not a key",
                                                          printable(path[at]), nameOfKey(parent)));
    }
    check(code);
    return &key;
}

CRegKey* StoreSession::Impl::walk(const Path& path, CRegKey& key, bool create) {
    CRegKey* at = &start();
    for (std::size_t index = 0; at && index < path.size(); ++index) {
        at = step(*at, path, index, key, create);
    }
    return at;
}

std::vector<Value> StoreSession::Impl::valueNames(CRegKey& key) {
    std::vector<Value> values;
    int code = REGLIB_OK;
    forEachName(
        [&](int index) {
            Value value;
            const int result = session->VQRegEnumValues(key, index, value.name, value.type);
            if (result >= 0) {
                values.push_back(std::move(value));
            }
            return result;
        },
        code);
    check(code);
    return values;
}

std::vector<std::string> StoreSession::Impl::keyNames(CRegKey& key) {
    std::vector<std::string> names;
    int code = REGLIB_OK;
    forEachName(
        [&](int index) {
            std::string name;
            const int result = session->VQRegEnumKeys(key, index, name);
            if (result >= 0) {
                names.push_back(std::move(name));
            }
            return result;
        },
        code);
    check(code);
    return names;
}

int StoreSession::Impl::query(CRegKey& key, Value& value) {
    std::array<unsigned char, 2048> small{};
    std::vector<unsigned char> large;
    unsigned char* data = small.data();
    unsigned long size = small.size();
    int code = session->VQRegQueryValue(key, value.name.c_str(), value.type, data, &size);
    if (code == REGLIB_E_BUFFER_TOO_SMALL) {
        // One byte more for what the last of an odd number of digits yields.
        large.resize(size + 1);
        data = large.data();
        code = session->VQRegQueryValue(key, value.name.c_str(), value.type, data, &size);
    }
    if (code < 0) {
        return code;
    }
    if (value.type == CRegLib::eDword) {
        std::memcpy(&value.number, data, sizeof value.number);
    } else {
        const unsigned long nul = value.type == CRegLib::eString ? 1 : 0;
        value.bytes.assign(reinterpret_cast<const char*>(data), size - nul);
    }
    return code;
}

void StoreSession::Impl::read(CRegKey& key, const Path& path, Key& into, int depthLeft,
                              const std::function<void()>& done) {
    for (Value& value : valueNames(key)) {
        check(query(key, value));
        into.values.emplace_hint(into.values.end(), folded(value.name), std::move(value));
        done();
    }
    Path childPath = path;
    childPath.emplace_back();
    for (const std::string& name : keyNames(key)) {
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

void StoreSession::Impl::write(CRegKey& key, const Path& path, const Value& value) {
    int code = REGLIB_E_BAD_TYPE;
    const char* const name = value.name.c_str();
    switch (value.type) {
        case CRegLib::eDword:
            code = session->VQRegSetValue(key, name, static_cast<unsigned long>(value.number));
            break;
        case CRegLib::eString:
            code = session->VQRegSetValue(key, name, value.bytes.c_str());
            break;
        case CRegLib::eBinary:
            code = session->VQRegSetValue(
                key, name, reinterpret_cast<const unsigned char*>(value.bytes.data()),
                value.bytes.size());
            break;
        case CRegLib::eNone:
            break;
    }
    if (code == REGLIB_E_NOT_A_VALUE) {
        throw CommandError(eExit::eWrongKind, fmt::format("\"{}\" is a sub key of {}, not a value",
                                                          printable(value.name), nameOfKey(path)));
    }
    check(code);
}

void StoreSession::Impl::removeBelow(CRegKey& key, const Path& path) {
    for (const Value& value : valueNames(key)) {
        check(session->VQRegDeleteValue(key, value.name.c_str()));
    }
    for (const std::string& name : keyNames(key)) {
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
        check(session->VQRegDeleteKey(key, name.c_str()));
    }
}

}  // namespace vqreg
