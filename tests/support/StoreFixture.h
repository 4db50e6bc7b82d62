// What the tests of the inner store have in common. For tests that see the library's inner headers.
//
// How tests look inside. Most do not: they open sessions, write files and start processes, and what they
// find is what a user would find. A few moments cannot be had from outside: the instant between two
// renames, a stamp that another process has just moved, a second that has passed. For these there is one
// friend, CFileStoreProbe, which the store's classes name and which only this file defines; it reads
// private words and sets a few: stamps, and the times of last looks. Two tests put values into the tree
// through it that no operation could make.
//
// Failures of the system, and times, come from more seams. CFileOps can be replaced as a whole, by one that
// fails from its nth call on (FileOpsFake.h); memory gives out at the nth request (FailingAllocation);
// texts cannot be copied (FailingCopies.h); and clocks are set (SetClock.h, stepping_clock.cpp).
//
// Tests that must not touch the machine run in mount namespaces of their own (private_root.cpp): they
// have an /etc, a /dev/shm and a /tmp that go with them.
#ifndef VQTEST_STORE_FIXTURE_H
#define VQTEST_STORE_FIXTURE_H

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "RegLib/file/FileStore.h"
#include "RegLib/trace/Trace.h"
#include "support/Results.h"
#include "support/TempStore.h"

namespace VQRegLib {

/// Looks inside a file store.
class CFileStoreProbe {
public:
    using CKeyOrValue = CRegLibImplFile::CKeyOrValue;

    explicit CFileStoreProbe(CRegLibImplFile& store) : m_store(store) {}

    CTree& tree() const { return *m_store.m_tree; }
    CKeyOrValue& treeRoot() const { return tree().root(); }
    std::string nameOf(const CKeyOrValue& node) const { return std::string(tree().nameOf(node)); }
    std::size_t childrenOf(const CKeyOrValue& node) const {
        return tree().countOfKind(node, true) + tree().countOfKind(node, false);
    }
    std::uint64_t& localStamp() const { return m_store.m_shared.m_ullLocalChangeStamp; }
    std::uint64_t sharedStamp() const { return m_store.m_shared.stamp(); }
    void setSharedStamp(std::uint64_t stamp) const {
        *m_store.m_shared.m_pullSharedChangeStamp = stamp;
    }
    /// As a writer does before it touches a name, and never takes back when it dies: a number beside the
    /// lock, if it holds that, and the mark.
    void markReplacing() const {
        CSharedState& shared = m_store.m_shared;
        (void)shared.m_pMutex->putCounter({shared.nextStamp(), shared.m_pSharedMemory->tag()});
        std::uint64_t before = 0;
        shared.markReplacing(before);
    }
    /// As if the mark of a replacement had been seen so long ago.
    void markedBefore(std::uint32_t seconds) const { m_store.m_shared.m_oddSince -= seconds; }
    /// As if a second had passed since the last look at the block.
    void lookAgain() const { --m_store.m_shared.m_lastLook; }
    /// As another process's write does.
    void moveStamp() const { setSharedStamp(sharedStamp() + 2); }
    /// As VQREG_SYNC=1 does, which a process looks at once.
    void setSynced() const { m_store.m_file.setSynced(true); }
    bool isFileOpen() const { return m_store.m_file.isOpen(); }
    std::size_t displaced() const { return tree().displaced(); }
    bool isLocked() const { return m_store.m_shared.m_pMutex->holder().pid != 0; }
    int importLines() const { return m_store.ImportConfigHelper(); }

    /// A node by the folded names on its way from the tree root; null when it is missing.
    CKeyOrValue* node(const std::vector<std::string>& foldedNames) const {
        CKeyOrValue* at = &treeRoot();
        for (const std::string& name : foldedNames) {
            at = at ? tree().findChild(*at, name) : nullptr;
        }
        return at;
    }

private:
    CRegLibImplFile& m_store;
};

}  // namespace VQRegLib

namespace vqtest {

using namespace VQRegLib;

/// A place for a store, with the trace switched off so that nothing else touches files.
class StoreTest : public testing::Test {
protected:
    StoreTest() { CRegLibTrace::m_lFakeMutex = 1; }

    std::unique_ptr<CRegLibImplFile> open(const char* root = nullptr) const {
        return std::make_unique<CRegLibImplFile>(file.path().c_str(), root,
                                                 CRegLib::eLocationDefault, nullptr);
    }

    TempStore file;
};

inline int createKey(CRegLibImpl& store, const char* path, CRegKey& key,
                     CRegKey* parent = nullptr) {
    return store.VQRegCreateKey(parent, path, key, 1, nullptr);
}

inline int openKey(CRegLibImpl& store, const char* path, CRegKey& key, CRegKey* parent = nullptr) {
    return store.VQRegCreateKey(parent, path, key, 0, nullptr);
}

inline int setText(CRegLibImpl& store, CRegKey& key, const char* name, const char* text,
                   int* changed = nullptr) {
    return store.VQRegSetValue(key, name, text, changed);
}

inline int setNumber(CRegLibImpl& store, CRegKey& key, const char* name, unsigned long number,
                     int* changed = nullptr) {
    return store.VQRegSetValue(key, name, number, changed);
}

inline int setBytes(CRegLibImpl& store, CRegKey& key, const char* name, const std::string& bytes,
                    int* changed = nullptr) {
    return store.VQRegSetValue(key, name, reinterpret_cast<const unsigned char*>(bytes.data()),
                               bytes.size(), changed);
}

inline Value get(CRegLibImpl& store, CRegKey& key, const char* name) {
    CRegLib::eDataType type = CRegLib::eNone;
    std::vector<unsigned char> buffer(8192);
    unsigned long size = buffer.size();
    const int code = store.VQRegQueryValue(key, name, type, buffer.data(), &size);
    if (code < 0) {
        return Value::failure(code);
    }
    return {code, type, std::string(reinterpret_cast<const char*>(buffer.data()), size)};
}

inline std::vector<std::string> keyNames(CRegLibImpl& store, CRegKey& key) {
    std::vector<std::string> names;
    std::string name;
    for (int index = 0; store.VQRegEnumKeys(key, index, name) >= 0; ++index) {
        names.push_back(name);
    }
    return names;
}

inline std::vector<std::string> valueNames(CRegLibImpl& store, CRegKey& key) {
    std::vector<std::string> names;
    std::string name;
    CRegLib::eDataType type = CRegLib::eNone;
    for (int index = 0; store.VQRegEnumValues(key, index, name, type) >= 0; ++index) {
        names.push_back(name);
    }
    return names;
}

}  // namespace vqtest

#endif  // VQTEST_STORE_FIXTURE_H
