#include "Play.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#include "Log.h"

namespace vqcompare {

using VQRegLib::CRegKey;
using VQRegLib::CRegLib;

namespace {

std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return file.is_open() ? content.str() : "(missing)";
}

}  // namespace

Play::Play(std::string directory, std::uint64_t seed, bool whole)
    : m_directory(std::move(directory)),
      m_whole(whole),
      m_chance(seed),
      // Careful programs on even seeds, careless ones on odd.
      m_texts(m_chance, seed % 2 == 0 ? 300 : 30) {
    std::filesystem::create_directories(m_directory + "/beside");
    const char* const spellings[] = {"/", "/./", "/beside/../"};
    const char* const roots[] = {nullptr, nullptr, nullptr, "Velquist/Net",
                                 nullptr, "Other", nullptr};
    for (std::size_t i = 0; i < kStores; ++i) {
        m_stores[i].file = i < 5 ? 0 : 1;
        m_stores[i].path = m_directory + spellings[i % 3] + (i < 5 ? "one.cfg" : "two.cfg");
        m_stores[i].root = roots[i];
    }
    if (m_chance.oneIn(2)) {
        std::ofstream(filePath(0), std::ios::binary) << m_texts.file(m_chance.oneIn(3));
    }
    for (m_store = 0; m_store < kStores; ++m_store) {
        openSession();
    }
}

Play::~Play() {
    for (m_store = 0; m_store < kStores; ++m_store) {
        while (m_updates[m_store] > 0) {
            endUpdate();
        }
    }
    for (Handle& handle : m_handles) {
        handle.key.reset();
    }
    for (Store& store : m_stores) {
        store.session.reset();
    }
    logFiles();
    std::filesystem::remove_all(m_directory);
}

std::string Play::filePath(std::size_t file) const {
    return m_directory + (file == 0 ? "/one.cfg" : "/two.cfg");
}

void Play::step() {
    // An update keeps other stores waiting or failing: mostly its own store goes on.
    for (int turn = 0; turn < 50; ++turn) {
        m_store = m_chance.below(kStores);
        if (!updates() || m_updates[m_store] > 0 || m_chance.oneIn(40)) {
            break;
        }
    }
    log("#", m_steps++, " store ", m_store);
    mend();
    using Step = void (Play::*)();
    constexpr Step kSteps[] = {
        &Play::createKey,    &Play::dropHandle,    &Play::deleteKey,       &Play::deleteValue,
        &Play::setNumber,    &Play::setText,       &Play::setBytes,        &Play::queryType,
        &Play::query,        &Play::enumerateKeys, &Play::enumerateValues, &Play::describe,
        &Play::createVector, &Play::dump,          &Play::parsePath,       &Play::beginUpdate,
        &Play::endUpdate,    &Play::reload,        &Play::changeFile,      &Play::closeSession,
        &Play::notify};
    const std::size_t chosen = m_chance.weighted(
        {14, 5, 4, 6, 14, 9, 4, 4, 15, 3, 4, 3, 1, 1, 1, 1, m_updates[m_store] > 0 ? 6u : 1u,
         1,  2, 1, 1});
    try {
        (this->*kSteps[chosen])();
    } catch (const VQException& exception) {
        log("  threw ", static_cast<unsigned>(exception.m_lCode));
    }
    logFiles();
}

Play::Handle& Play::handle(bool filled) {
    Handle* found = &m_handles[m_chance.below(kHandles)];
    // Now and then it is another store's, or an empty one.
    for (int turn = 0; turn < 60 && !m_chance.oneIn(100); ++turn) {
        if (found->store == m_store && (!filled || found->key->GetKeyHandleID() != 0)) {
            break;
        }
        found = &m_handles[m_chance.below(kHandles)];
    }
    log("  handle ", found - m_handles.data());
    return *found;
}

CRegKey& Play::key() {
    CRegKey* const root = session().RootKey();
    if (root != nullptr && m_chance.oneIn(6)) {
        log("  root key");
        return *root;
    }
    return *handle(true).key;
}

void Play::openSession() {
    Store& store = m_stores[m_store];
    int result = 1;
    store.session = std::make_unique<CRegLib>(store.path.c_str(), store.root,
                                              CRegLib::eLocationDefault, &result);
    CRegKey* const root = session().RootKey();
    log("open session ", m_store, code(result), " ",
        root == nullptr ? "no store" : shown(root->GetKeyFullName()));
}

void Play::closeSession() {
    if (updates()) {
        return;  // no session may be closed then
    }
    log("close session");
    m_stores[m_store].session.reset();
    openSession();
}

void Play::createKey() {
    CRegKey empty;
    CRegKey* parent = nullptr;
    switch (m_chance.weighted({4, 4, 1})) {
        case 1:
            parent = &key();
            break;
        case 2:
            parent = &empty;
            break;
        default:
            break;
    }
    const std::string path = (parent == &empty ? "Velquist/" : "") + m_texts.path();
    Handle& target = handle(false);
    const int create = m_chance.oneIn(4) ? 0 : 1;
    if (parent == target.key.get() && m_chance.oneIn(2)) {
        parent = nullptr;
    }
    const int result = session().VQRegCreateKey(parent, path.c_str(), *target.key, create);
    target.store = m_store;
    log("  create ", shown(path), " ", create, code(result), " ", shown(target.key->GetKeyName()),
        " ", shown(target.key->GetKeyFullName()), " ", target.key->GetKeyHandleID());
}

void Play::createVector() {
    std::vector<CRegKey*> keys;
    std::vector<std::string> names = {"before"};
    const std::string path = m_texts.path();
    const int result =
        session().VQRegCreateKeyVect(nullptr, path.c_str(), keys, names, m_chance.oneIn(2) ? 1 : 0);
    log("  create all of ", shown(path), code(result));
    for (const std::string& name : names) {
        log("    name ", shown(name));
    }
    for (const CRegKey* key : keys) {
        log("    key ", shown(key->GetKeyFullName()), " ", key->GetKeyHandleID());
    }
    log("  free them", code(session().VQRegDestroyKeyVect(keys)), " ", keys.size());
}

void Play::dropHandle() {
    Handle& dropped = handle(true);
    dropped.key = std::make_unique<CRegKey>();
    dropped.store = m_chance.below(kStores);
}

void Play::deleteKey() {
    CRegKey& from = key();
    const std::string path = subKeyOf(from);
    // A new one is empty, and this handle of it outlives it.
    CRegKey made;
    if (m_chance.oneIn(3)) {
        log("  make ", shown(path), code(session().VQRegCreateKey(&from, path.c_str(), made, 1)));
    }
    log("  delete key ", shown(path), code(session().VQRegDeleteKey(from, path.c_str())));
    log("  was ", shown(made.GetKeyFullName()), " ", made.GetKeyHandleID());
}

std::string Play::valueOf(CRegKey& at) {
    std::string name = m_texts.valueName();
    if (!m_chance.oneIn(3)) {
        auto type = CRegLib::eNone;
        std::string found;
        const auto index = static_cast<int>(m_chance.below(m_chance.oneIn(4) ? 100 : 6));
        if (session().VQRegEnumValues(at, index, found, type) >= 0) {
            name = found;
        }
    }
    return name;
}

std::string Play::subKeyOf(CRegKey& at) {
    std::string path = m_texts.path();
    if (!m_chance.oneIn(3)) {
        std::string found;
        const auto index = static_cast<int>(m_chance.below(m_chance.oneIn(4) ? 40 : 4));
        if (session().VQRegEnumKeys(at, index, found) >= 0) {
            path = found;
        }
    }
    return path;
}

void Play::deleteValue() {
    CRegKey& from = key();
    const std::string name = valueOf(from);
    log("  delete value ", shown(name), code(session().VQRegDeleteValue(from, name.c_str())));
}

void Play::setNumber() {
    CRegKey& at = key();
    const std::string name = m_texts.valueName();
    // Few numbers, so that many are what they were before.
    const unsigned long number =
        m_chance.oneIn(3) ? m_chance.below(2) : m_chance.below(~std::size_t{0});
    log("  set ", shown(name), " to ", number,
        code(session().VQRegSetValue(at, name.c_str(), number)));
}

void Play::setText() {
    CRegKey& at = key();
    const std::string name = valueOf(at);
    const std::string text = m_chance.oneIn(4) ? "same" : m_texts.text();
    log("  set ", shown(name), " to ", shown(text),
        code(session().VQRegSetValue(at, name.c_str(), text.c_str())));
}

void Play::setBytes() {
    CRegKey& at = key();
    const std::string name = m_texts.valueName();
    const std::string bytes = m_chance.oneIn(4) ? "same" : m_texts.bytes();
    const auto* const data = reinterpret_cast<const unsigned char*>(bytes.data());
    log("  set ", shown(name), " to bytes ", shown(bytes),
        code(session().VQRegSetValue(at, name.c_str(), bytes.empty() ? nullptr : data,
                                     bytes.size())));
}

void Play::queryType() {
    CRegKey& at = key();
    const std::string name = valueOf(at);
    auto type = static_cast<CRegLib::eDataType>(77);
    const int result = session().VQRegQueryValueType(at, name.c_str(), type);
    log("  type of ", shown(name), code(result), " ", static_cast<int>(type));
}

// The buffer is shown whole: what has not been written is seen as well.
void Play::query() {
    CRegKey& at = key();
    const std::string name = valueOf(at);
    auto type = static_cast<CRegLib::eDataType>(77);
    std::string buffer(m_chance.oneIn(3) ? m_chance.below(12) : 3000, '#');
    const bool none = m_chance.oneIn(12);
    unsigned long size = none && m_chance.oneIn(2) ? 0 : buffer.size();
    buffer += "########";
    auto* const data = none ? nullptr : reinterpret_cast<unsigned char*>(buffer.data());
    if (none) {
        size = 0;
    }
    const int result = session().VQRegQueryValue(at, name.c_str(), type, data, &size);
    const std::size_t end = buffer.find_last_not_of('#') + 1;
    log("  query ", shown(name), none ? " (null)" : "", code(result), " ", static_cast<int>(type),
        " ", size, " ", buffer.size(), " ", shown(buffer.substr(0, end)));
}

void Play::enumerateKeys() {
    CRegKey& at = key();
    std::string name = "before";
    const int begin = m_chance.oneIn(8) ? -2 : 0;
    int result = 0;
    for (int index = begin; index < 500 && (result >= 0 || index <= 0); ++index) {
        result = session().VQRegEnumKeys(at, index, name);
        log("  key ", index, code(result), " ", shown(name));
    }
}

void Play::enumerateValues() {
    CRegKey& at = key();
    std::string name = "before";
    auto type = static_cast<CRegLib::eDataType>(77);
    const int begin = m_chance.oneIn(8) ? -2 : 0;
    int result = 0;
    for (int index = begin; index < 500 && (result >= 0 || index <= 0); ++index) {
        result = session().VQRegEnumValues(at, index, name, type);
        log("  value ", index, code(result), " ", shown(name), " ", static_cast<int>(type));
    }
}

void Play::describe() {
    const CRegKey& at = key();
    log("  is ", shown(at.GetKeyName()), " ", shown(at.GetKeyFullName()), " ", at.GetKeyHandleID());
}

void Play::dump() {
    log("  dump");
    session().dump();
}

void Play::parsePath() {
    const std::string path = m_texts.path();
    std::vector<std::string> names = {"before"};
    log("  parse ", shown(path), code(session().ParseKeyPath(path.c_str(), names)));
    for (const std::string& name : names) {
        log("    ", shown(name));
    }
}

bool Play::updates() const {
    return std::any_of(m_updates.begin(), m_updates.end(),
                       [](unsigned depth) { return depth > 0; });
}

void Play::beginUpdate() {
    const int result = session().VQRegBeginUpdate();
    log("  begin update", code(result));
    m_updates[m_store] += result >= 0 ? 1 : 0;
}

void Play::endUpdate() {
    log("  end update", code(session().VQRegEndUpdate()));
    m_updates[m_store] -= m_updates[m_store] > 0 ? 1 : 0;
}

void Play::reload() {
    log("  reload", code(session().VQRegReload()));
}

void Play::notify() {
    log("  notify", code(session().SendRegistryChangeNotification()));
}

// What happens to files; mostly with a reload behind it, else nobody notices.
void Play::changeFile() {
    const std::size_t file = m_stores[m_store].file;
    const std::string path = filePath(file);
    const std::size_t way = m_chance.weighted({8, 4, 2, 2, 2, 1});
    log("  file ", file, " is changed, ", way);
    std::error_code error;
    switch (way) {
        case 0:
            std::ofstream(path, std::ios::binary) << m_texts.file(m_chance.oneIn(3));
            break;
        case 1:
            std::ofstream(path, std::ios::binary | std::ios::app)
                << m_texts.file(m_chance.oneIn(3));
            break;
        case 2:
            std::ofstream(path, std::ios::binary | std::ios::trunc).flush();
            break;
        case 3:
            std::filesystem::remove(path);
            break;
        case 4:
            std::filesystem::remove(path + ".bak");
            break;
        default:
            std::filesystem::copy_file(path + ".bak", path,
                                       std::filesystem::copy_options::overwrite_existing, error);
    }
    if (!m_chance.oneIn(4)) {
        reload();
    }
}

// Nothing goes on with a malformed file, so it does not stay for long.
void Play::mend() {
    auto type = CRegLib::eNone;
    CRegKey* const root = session().RootKey();
    const int result = root == nullptr ? VQRegLib::REGLIB_E_NOT_INITIALIZED
                                       : session().VQRegQueryValueType(*root, "a", type);
    log("  state", code(result));
    const bool bad = root == nullptr || result == VQRegLib::REGLIB_E_BAD_FORMAT;
    if (!bad || !m_chance.oneIn(3)) {
        return;
    }
    const std::string text = m_chance.oneIn(3) ? "[Velquist]\n" : m_texts.file(false);
    std::ofstream(filePath(m_stores[m_store].file), std::ios::binary) << text;
    reload();
    if (root == nullptr) {
        closeSession();
    }
}

void Play::logFiles() {
    for (std::size_t file = 0; file < kFiles; ++file) {
        const std::string path = filePath(file);
        for (std::size_t backup = 0; backup < 2; ++backup) {
            std::string content = contentOf(backup == 0 ? path : path + ".bak");
            std::string& before = m_contents[file * 2 + backup];
            if (content != before) {
                log("  ", backup == 0 ? "file " : "backup ", file, ": ",
                    m_whole ? shown(content) : digest(content));
                before = std::move(content);
            }
        }
    }
}

}  // namespace vqcompare
