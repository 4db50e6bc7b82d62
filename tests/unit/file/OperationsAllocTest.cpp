// Every operation, with the n-th allocation failing, for every n.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <iterator>
#include <new>
#include <set>
#include <string>

#include "portable/ObjectName.h"
#include "support/FailingAllocation.h"
#include "support/StoreFixture.h"

using namespace vqtest;
using testing::ElementsAre;
using testing::IsSupersetOf;

namespace {

constexpr long kMostAllocations = 500;

const std::string kLongName(300, 'N');

std::ptrdiff_t openDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
}

// Runs an action with the n-th allocation failing. True when it came to that one.
template <typename Action>
bool failingAt(long n, Action&& action) {
    FailingAllocation allocation(n);
    action();
    return allocation.hasFailed();
}

class Operations : public StoreTest {
protected:
    using Store = CRegLibImplFile;
    using Operation = std::function<int(Store&)>;

    void prepare(Store& store) const {
        CRegKey key;
        ASSERT_EQ(createKey(store, "k/below", key), REGLIB_OK);
        ASSERT_EQ(createKey(store, "empty", key), REGLIB_OK);
        ASSERT_EQ(setText(store, *store.RootKey(), "Text", "x"), REGLIB_OK);
        ASSERT_EQ(setNumber(store, *store.RootKey(), kLongName.c_str(), 1), REGLIB_OK);
    }

    // The store works, nobody holds its lock, and a new one reads from the file what it holds.
    void expectSound(Store& store) const {
        ASSERT_FALSE(CFileStoreProbe(store).isFileOpen());
        static unsigned long number = 100;
        CRegKey& root = *store.RootKey();
        ASSERT_EQ(setNumber(store, root, "check", ++number), REGLIB_OK);
        ASSERT_EQ(get(store, root, "check"), Value::ofDword(static_cast<std::uint32_t>(number)));
        expectWritten(store);
        ASSERT_THAT(file.files(), ElementsAre("store.cfg", "store.cfg.bak"));
    }

    // What a new store reads from the file is what this one has in memory.
    void expectWritten(Store& store) const {
        CRegKey& root = *store.RootKey();
        const auto other = open();
        CRegKey& otherRoot = *other->RootKey();
        ASSERT_EQ(valueNames(*other, otherRoot), valueNames(store, root));
        ASSERT_EQ(keyNames(*other, otherRoot), keyNames(store, root));
        for (const std::string& name : valueNames(store, root)) {
            ASSERT_EQ(get(*other, otherRoot, name.c_str()), get(store, root, name.c_str()));
        }
    }

    // As tryAll; afterwards an empty update writes what the operation has left in memory.
    void tryAllAndUpdate(const Operation& operation) {
        bool failed = true;
        for (long n = 0; failed; ++n) {
            ASSERT_LT(n, kMostAllocations);
            file.write("");
            auto store = open();
            prepare(*store);
            failed = failingAt(n, [&] { (void)operation(*store); });
            ASSERT_EQ(store->VQRegBeginUpdate(), REGLIB_OK);
            ASSERT_EQ(store->VQRegEndUpdate(), REGLIB_OK);
            expectWritten(*store);
            if (HasFatalFailure()) {
                FAIL() << "at allocation " << n;
            }
        }
    }

    // Tries the operation on a fresh copy of the store for each n until no allocation is left to
    // fail.
    void tryAll(const Operation& operation, bool mayKeepLock = false) {
        long n = 0;
        const std::ptrdiff_t descriptors = openDescriptors();
        for (bool failed = true; failed; ++n) {
            ASSERT_LT(n, kMostAllocations);
            file.write("");
            auto store = open();
            prepare(*store);
            int code = REGLIB_OK;
            failed = failingAt(n, [&] {
                try {
                    code = operation(*store);
                } catch (const VQException& exception) {
                    code = exception.m_lCode;
                }
            });
            ASSERT_TRUE(code == REGLIB_OK || code == REGLIB_E_FAIL) << n << " " << code;
            ASSERT_TRUE(failed || code == REGLIB_OK);
            if (CFileStoreProbe(*store).isLocked()) {
                ASSERT_TRUE(mayKeepLock) << n;
                ASSERT_EQ(store->Unlock(), 0);
            }
            ASSERT_FALSE(CFileStoreProbe(*store).isLocked()) << n;
            expectSound(*store);
            if (HasFatalFailure()) {
                FAIL() << "at allocation " << n;
            }
        }
        EXPECT_GT(n, 1) << "nothing is allocated here";
        EXPECT_EQ(openDescriptors(), descriptors);
    }
};

void makeStale(CRegLibImplFile& store) {
    CFileStoreProbe(store).moveStamp();
}

}  // namespace

TEST_F(Operations, CreateKeysWithoutMemory) {
    tryAll([](Store& store) {
        CRegKey key;
        return createKey(store, "new/path/of/keys", key);
    });
    const std::string longPath = std::string(300, 'M') + "/" + std::string(300, 'O');
    tryAll([&](Store& store) {
        CRegKey key;
        return createKey(store, longPath.c_str(), key);
    });
}

TEST_F(Operations, OpenKeysWithoutMemory) {
    tryAll([](Store& store) {
        CRegKey key;
        const int first = openKey(store, "k/below", key);
        return first < 0 ? first : openKey(store, "K", key);
    });
}

TEST_F(Operations, CreateSeveralKeysWithoutMemory) {
    tryAll([](Store& store) {
        std::vector<CRegKey*> keys;
        std::vector<std::string> names;
        const int code = store.VQRegCreateKeyVect(store.RootKey(), "k/new/keys", keys, names, 1);
        EXPECT_EQ(keys.size(), names.size());
        store.VQRegDestroyKeyVect(keys);
        return code;
    });
}

TEST_F(Operations, SetTextsWithoutMemory) {
    const std::string text(400, 't');
    tryAll([&](Store& store) { return setText(store, *store.RootKey(), "new", text.c_str()); });
    tryAll([&](Store& store) { return setText(store, *store.RootKey(), "Text", text.c_str()); });
}

TEST_F(Operations, SetNumbersWithoutMemory) {
    tryAll([](Store& store) {
        const int code = setNumber(store, *store.RootKey(), kLongName.c_str(), 2);
        return code < 0 ? code : setNumber(store, *store.RootKey(), "a new number", 3);
    });
}

TEST_F(Operations, SetBytesWithoutMemory) {
    const std::string bytes(400, 'b');
    tryAll([&](Store& store) { return setBytes(store, *store.RootKey(), "new bytes", bytes); });
}

TEST_F(Operations, AFailedSetLeavesTheOldValueOrTheNew) {
    tryAll([](Store& store) {
        int changed = -1;
        const int code = setText(store, *store.RootKey(), "Text", "another text", &changed);
        const UnlimitedAllocation unlimited;
        const Value now = get(store, *store.RootKey(), "text");
        EXPECT_EQ(now, Value::ofText(changed ? "another text" : "x"));
        EXPECT_TRUE(code < 0 || changed == 1);
        return code;
    });
}

TEST_F(Operations, WhatAChangeWithoutMemoryLeavesUnwrittenAnUpdateWrites) {
    const std::string text(400, 't');
    tryAllAndUpdate(
        [&](Store& store) { return setText(store, *store.RootKey(), "Text", text.c_str()); });
    tryAllAndUpdate([](Store& store) { return store.VQRegDeleteValue(*store.RootKey(), "Text"); });
}

TEST_F(Operations, WhatNewKeysWithoutMemoryLeaveUnwrittenAnUpdateWrites) {
    tryAllAndUpdate([](Store& store) {
        CRegKey key;
        return createKey(store, "new/path/of/keys", key);
    });
}

TEST_F(Operations, WhatAnUpdateWithoutMemoryLeavesUnwrittenTheNextOneWrites) {
    tryAllAndUpdate([](Store& store) {
        if (store.VQRegBeginUpdate() >= 0) {
            (void)setNumber(store, *store.RootKey(), "a new number", 3);
            (void)store.VQRegEndUpdate();
        }
        return REGLIB_OK;
    });
}

namespace {

int queryLongName(CRegLibImplFile& store) {
    CRegLib::eDataType type = CRegLib::eString;
    unsigned char buffer[16];
    unsigned long size = sizeof buffer;
    const int code =
        store.VQRegQueryValue(*store.RootKey(), kLongName.c_str(), type, buffer, &size);
    return code < 0 ? code : store.VQRegQueryValueType(*store.RootKey(), kLongName.c_str(), type);
}

}  // namespace

TEST_F(Operations, QueryAfterAForeignChangeWithoutMemory) {
    tryAll(
        [](Store& store) {
            makeStale(store);
            return queryLongName(store);
        },
        true);
}

TEST_F(Operations, QueriesTakeNoMemoryWhateverTheName) {
    file.write("");
    auto store = open();
    prepare(*store);
    EXPECT_FALSE(failingAt(0, [&] { EXPECT_EQ(queryLongName(*store), REGLIB_OK); }));
}

TEST_F(Operations, EnumerateWithoutMemory) {
    tryAll([](Store& store) {
        std::string name;
        CRegLib::eDataType type = CRegLib::eNone;
        const int code = store.VQRegEnumValues(*store.RootKey(), 0, name, type);
        return code < 0 ? code : store.VQRegEnumKeys(*store.RootKey(), 1, name);
    });
}

TEST_F(Operations, DeleteValuesWithoutMemory) {
    tryAll(
        [](Store& store) { return store.VQRegDeleteValue(*store.RootKey(), kLongName.c_str()); });
}

TEST_F(Operations, DeleteKeysWithoutMemory) {
    tryAll([](Store& store) {
        CRegKey handle;
        const int code = openKey(store, "empty", handle);
        return code < 0 ? code : store.VQRegDeleteKey(*store.RootKey(), "Empty");
    });
}

TEST_F(Operations, ImportWithoutMemory) {
    const std::string text = "[Velquist]\n\"" + kLongName +
                             "\"=dword:00000009\n\"k\"=string:" + std::string(200, 'x') +
                             "\n[Velquist/a/new/path/of/quite/a/few/names]\n\"v\"=string:y\n";
    tryAll([&](Store& store) {
        CRegKey displaced;  // keeps the key alive whose name the file gives to a value
        {
            const UnlimitedAllocation unlimited;
            EXPECT_EQ(openKey(store, "k", displaced), REGLIB_OK);
            file.write(text);
            makeStale(store);
        }
        std::string name;
        return store.VQRegEnumKeys(*store.RootKey(), 0, name);
    });
}

TEST_F(Operations, ConstructAStoreWithoutMemory) {
    std::set<std::string> thrown;
    const std::ptrdiff_t descriptors = openDescriptors();
    bool failed = true;
    for (long n = 0; failed; ++n) {
        ASSERT_LT(n, kMostAllocations);
        file.write("[Other]\n\"a\"=string:x\n");
        std::unique_ptr<CRegLibImplFile> store;
        std::string text;
        const std::string path = file.path();
        failed = failingAt(n, [&] {
            try {
                store = std::make_unique<CRegLibImplFile>(path.c_str(), "Velquist/Logging",
                                                          CRegLib::eLocationDefault, nullptr);
            } catch (const VQException& exception) {
                EXPECT_EQ(exception.m_lCode, REGLIB_E_FAIL);
                const UnlimitedAllocation unlimited;
                text = exception.m_szText;
            } catch (const std::bad_alloc&) {
                text = "no memory";
            }
        });
        ASSERT_EQ(store == nullptr, !text.empty());
        thrown.insert(text);
        store.reset();
        EXPECT_EQ(CPMutex(1, 0, path, 1, 1).holder().pid, 0) << n;
        const auto again = open("Velquist/Logging");
        EXPECT_EQ(file.read(), "[Other]\n\"a\"=string:x\n[Velquist]\n[Velquist/Logging]\n");
    }
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_THAT(thrown, IsSupersetOf({"RegLib.3249", "RegLib.3253", "RegLib.3264", "RegLib.3282",
                                      "RegLib.3294", "RegLib.3311"}));
}

TEST_F(Operations, AKeyThatTheStoreSetOutToMakeIsToldAsNewAlsoWithoutMemory) {
    bool isSeen = false;
    bool failed = true;
    for (long n = 0; failed; ++n) {
        ASSERT_LT(n, kMostAllocations);
        file.write("");
        auto store = open();
        CRegKey key;
        int exists = 7;
        int code = REGLIB_OK;
        failed =
            failingAt(n, [&] { code = store->VQRegCreateKey(nullptr, "new", key, 1, &exists); });
        const bool isMade = CFileStoreProbe(*store).node({"velquist", "new"}) != nullptr;
        ASSERT_TRUE(exists == 0 || !isMade) << n;
        isSeen = isSeen || (code == REGLIB_E_FAIL && !isMade && exists == 0);
    }
    EXPECT_TRUE(isSeen) << "no allocation of the new node has failed";
}

// Whoever tells of the refused lock needs memory; the caller learns of the lock without it.
TEST_F(Operations, AChangeFailsWithoutALock) {
    const std::string lock = VQRegLib::objectPath("CPLock", file.path());
    bool failed = true;
    for (long n = 0; failed; ++n) {
        ASSERT_LT(n, kMostAllocations);
        file.write("");
        auto store = open();
        prepare(*store);
        ASSERT_EQ(::unlink(lock.c_str()), 0);
        ASSERT_EQ(::mkdir(lock.c_str(), 0777), 0);
        int code = REGLIB_OK;
        failed = failingAt(n, [&] { code = setNumber(*store, *store->RootKey(), "new", 1); });
        ASSERT_EQ(::rmdir(lock.c_str()), 0);
        ASSERT_TRUE(code == REGLIB_E_FILE_OPEN || code == REGLIB_E_FAIL) << n << " " << code;
        ASSERT_NO_FATAL_FAILURE(expectSound(*store)) << n;
    }
}
