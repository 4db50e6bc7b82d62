#include "tools/vqreg/store/OpenStore.h"

#include <fmt/format.h>

#include <filesystem>
#include <utility>
#include <vector>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/store/LockInfo.h"
#include "tools/vqreg/store/LockWatch.h"
#include "tools/vqreg/store/PlaceFault.h"
#include "tools/vqreg/store/StoreFault.h"
#include "tools/vqreg/store/StoreText.h"
#include "tools/vqreg/text/Path.h"
#include "tools/vqreg/text/Rules.h"

namespace vqreg {

using namespace VQRegLib;

namespace {

// The first session of a process looks into the default store too, if it can be opened.
std::vector<std::string> lockedFiles(const std::string& file) {
    try {
        return {file, storeFile({})};
    } catch (const CommandError&) {
        return {file};
    }
}

}  // namespace

OpenStore::OpenStore(const StoreOptions& options)
    : m_options(options), m_file(storeFile(options)), m_root(rootName(options)) {
    checkRootName();
    if (const auto fault = options.create ? nameFault(m_file) : std::nullopt) {
        throw *fault;
    }
    if (!options.create && (options.file || std::filesystem::exists(m_file))) {
        const std::string text = readStoreFile(m_file, m_root);
        if (!options.wholeFile && !hasRootKey(text, m_root)) {
            throw missingRootFault(m_file, m_root, text);
        }
    }
    checkNotLost();
    try {
        const LockWatch watch(lockedFiles(m_file), options.timeoutSeconds);
        m_session = std::make_unique<CRegLib>(options.file ? m_file.c_str() : nullptr,
                                              m_root.c_str(), CRegLib::eLocationDefault, nullptr);
    } catch (const VQException&) {
        throw CommandError(eExit::eUnavailable, m_file + ": there is no memory to open the store");
    }
    if (!m_session->RootKey()) {
        throw openFault(m_file, m_root);
    }
    // Opening makes it where it is missing.
    if (options.create && !hasRootKey(readStoreFile(m_file, m_root), m_root)) {
        throw replaceFault(m_file);
    }
}

void OpenStore::check(int code) const {
    if (code < 0) {
        throw codeFault(m_file, m_root, code);
    }
}

void OpenStore::abandon() {
    static auto* const abandoned = new std::vector<std::unique_ptr<CRegLib>>;
    abandoned->push_back(std::move(m_session));
}

void OpenStore::checkRootName() const {
    for (const std::string& name : m_root.empty() ? Path{""} : splitPath("/" + m_root)) {
        if (const auto broken = brokenRuleOfKeyName(name)) {
            throw CommandError(eExit::eWrongKind, "--root: " + *broken);
        }
    }
}

// The library would make a fresh file where there is none, and change by change the backup would go.
void OpenStore::checkNotLost() const {
    if (!m_options.create && std::filesystem::exists(m_file)) {
        return;
    }
    const auto stamp = changeStamp(m_file);
    const auto hint = lostTextHint(m_file);
    // In the middle of a change the file may be missing, and the library mends that when the process
    // that made it has died there.
    const bool isChanging = stamp != changeStamp(m_file) || (stamp && *stamp % 2 != 0);
    if (hint && !isChanging) {
        throw CommandError(
            eExit::eUnavailable,
            fmt::format("{}: {}; removing the backup makes room for a new store", m_file, *hint));
    }
}

}  // namespace vqreg
