// Making and destroying a store.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "portable/ObjectName.h"
#include "support/FileOpsFake.h"
#include "support/StoreFixture.h"
#include "support/Threads.h"
#include "support/TraceLog.h"

using namespace vqtest;
using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;

namespace {

class Construction : public StoreTest {
protected:
    // Code and text of what the constructor throws.
    std::pair<int, std::string> failure(const char* root = nullptr) const {
        try {
            open(root);
        } catch (const VQException& exception) {
            return {exception.m_lCode, exception.m_szText};
        }
        return {0, "nothing"};
    }

    // Puts something else where the store looks for one of its system objects.
    std::string obstruct(const std::string& kind) const {
        const std::string name = VQRegLib::objectPath(kind, file.path());
        EXPECT_EQ(::mkdir(name.c_str(), 0777), 0) << name;
        return name;
    }
};

using Failure = std::pair<int, std::string>;

// Tells of each opening of the file for reading before it happens, and of each rename.
class TellingFiles : public FileOpsFake {
public:
    VQRegLib::COpenFile openForReading(const char* path) override {
        atOpening();
        return FileOpsFake::openForReading(path);
    }
    int rename(const char* path, const char* newPath) override {
        atRename();
        return FileOpsFake::rename(path, newPath);
    }

    std::function<void()> atOpening = [] {};
    std::function<void()> atRename = [] {};
};

}  // namespace

TEST_F(Construction, MakesTheFileWithTheTopLevelKey) {
    const auto store = open();
    EXPECT_EQ(file.read(), "[Velquist]\n");
    EXPECT_STREQ(store->m_pszFileName, file.path().c_str());
    EXPECT_STREQ(store->RootKey()->GetKeyFullName(), "[Velquist]");
    EXPECT_EQ(store->m_pRootKey, store->RootKey());
    EXPECT_EQ(store->m_pRootKeyImpl, CRegKeyAccess::record(*store->RootKey()));
    EXPECT_EQ(store->m_pRootKeyImpl->m_lRefCount.load(), 1);
    const CFileStoreProbe probe(*store);
    EXPECT_EQ(probe.nameOf(probe.treeRoot()), "<root>");
    EXPECT_EQ(probe.treeRoot().m_iIsKey, 1);
    EXPECT_EQ(probe.treeRoot().line(), "");
    EXPECT_EQ(probe.tree().parentOf(probe.treeRoot()), nullptr);
    EXPECT_EQ(probe.localStamp(), probe.sharedStamp());
    EXPECT_NE(probe.sharedStamp(), 0u);
    EXPECT_FALSE(probe.isLocked());
    EXPECT_FALSE(probe.isFileOpen());
}

TEST_F(Construction, TakesTheGivenRootKeyAndIgnoresTheLocation) {
    int result = 5;
    const CRegLibImplFile store(file.path().c_str(), "Site", static_cast<CRegLib::LOCATION>(3),
                                &result);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(file.read(), "[Site]\n");
    EXPECT_STREQ(store.RootKey()->GetKeyFullName(), "[Site]");
}

TEST_F(Construction, TakesTheDefaultNameFromItsGlobal) {
    EXPECT_EQ(sizeof g_szRootKeynameFile, 9u);
    EXPECT_STREQ(g_szRootKeynameFile, "Velquist");
    std::memcpy(g_szRootKeynameFile, "Altquist", 9);
    const auto store = open();
    EXPECT_EQ(file.read(), "[Altquist]\n");
    std::memcpy(g_szRootKeynameFile, "Velquist", 9);
}

TEST_F(Construction, ARootKeyMayBeAPath) {
    const auto store = open("Velquist/Logging");
    EXPECT_EQ(file.read(), "[Velquist]\n[Velquist/Logging]\n");
    setText(*store, *store->RootKey(), "v", "x");
    EXPECT_EQ(file.read(), "[Velquist]\n[Velquist/Logging]\n\"v\"=string:x\n");
    const auto again = open("VELQUIST\\logging");
    EXPECT_STREQ(again->RootKey()->GetKeyFullName(), "[Velquist/Logging]");
    EXPECT_STREQ(again->RootKey()->GetKeyName(), "logging");
}

TEST_F(Construction, ReadsAnExistingFileAndDoesNotWriteIt) {
    file.write("[velquist]\n\"a\"=string:x\n");
    const ino_t inode = file.inode();
    const auto store = open();
    EXPECT_EQ(get(*store, *store->RootKey(), "a"), Value::ofText("x"));
    EXPECT_STREQ(store->RootKey()->GetKeyFullName(), "[velquist]");
    EXPECT_STREQ(store->RootKey()->GetKeyName(), "Velquist");
    EXPECT_EQ(file.inode(), inode);
    EXPECT_FALSE(file.backupExists());
}

TEST_F(Construction, AddsTheRootKeyToAFileWithoutIt) {
    file.write("[Other]\n\"a\"=string:x\n");
    const auto store = open();
    EXPECT_EQ(file.read(), "[Other]\n\"a\"=string:x\n[Velquist]\n");
    EXPECT_EQ(file.readBackup(), "[Other]\n\"a\"=string:x\n");
}

TEST_F(Construction, UsesTheDefaultFile) {
    fs::remove("/etc/Velquist.cfg");
    const CRegLibImplFile store(nullptr, nullptr, CRegLib::eLocationDefault, nullptr);
    EXPECT_STREQ(store.m_pszFileName, "/etc/Velquist.cfg");
    EXPECT_EQ(readFile("/etc/Velquist.cfg"), "[Velquist]\n");
}

TEST_F(Construction, PrefersTheDirectoryVelquistEtcWhereItExists) {
    ASSERT_TRUE(fs::create_directories("/velquist/etc"));
    const CRegLibImplFile store(nullptr, nullptr, CRegLib::eLocationDefault, nullptr);
    EXPECT_STREQ(store.m_pszFileName, "/velquist/etc/Velquist.cfg");
    EXPECT_EQ(readFile("/velquist/etc/Velquist.cfg"), "[Velquist]\n");
    fs::remove_all("/velquist");
}

TEST_F(Construction, PrefersVelquistEtcEvenWhenItIsAPlainFile) {
    fs::remove("/etc/Velquist.cfg");
    ASSERT_TRUE(fs::create_directories("/velquist"));
    std::ofstream("/velquist/etc") << "x";
    EXPECT_THROW(CRegLibImplFile(nullptr, nullptr, CRegLib::eLocationDefault, nullptr),
                 VQException);
    EXPECT_FALSE(fs::exists("/etc/Velquist.cfg"));
    fs::remove_all("/velquist");
}

TEST_F(Construction, TheFirstStoreStampsTheSharedBlockAndLaterOnesLeaveIt) {
    const auto first = open();
    const std::uint64_t stamp = CFileStoreProbe(*first).sharedStamp();
    const auto second = open();
    EXPECT_EQ(CFileStoreProbe(*second).sharedStamp(), stamp);
    EXPECT_EQ(CFileStoreProbe(*second).localStamp(), stamp);
}

TEST_F(Construction, FailsWithoutItsMutex) {
    const std::string obstacle = obstruct("CPLock");
    EXPECT_EQ(failure(), Failure(REGLIB_E_FAIL, "RegLib.3253"));
    EXPECT_THAT(file.files(), IsEmpty());
    fs::remove(obstacle);
    EXPECT_EQ(failure(), Failure(0, "nothing"));
}

TEST_F(Construction, FailsWithoutItsSharedBlockAndGivesTheLockBack) {
    const std::string obstacle = obstruct("CPBlock");
    EXPECT_EQ(failure(), Failure(REGLIB_E_FAIL, "RegLib.3264"));
    EXPECT_THAT(file.files(), IsEmpty());
    EXPECT_EQ(CPMutex(1, 0, file.path(), 1, 1).holder().pid, 0);
    fs::remove(obstacle);
    EXPECT_EQ(failure(), Failure(0, "nothing"));
}

TEST_F(Construction, FailsWithTheCodeOfItsRootKey) {
    file.write("bad\n");
    EXPECT_EQ(failure(), Failure(REGLIB_E_BAD_FORMAT, "RegLib.3311"));
    file.write("[Velquist]\n\"v\"=string:x\n");
    EXPECT_EQ(failure("Velquist/V"), Failure(REGLIB_E_NOT_A_KEY, "RegLib.3311"));
    EXPECT_EQ(failure("Velquist/v/k"), Failure(REGLIB_E_NOT_A_KEY, "RegLib.3311"));
    FileOpsFake files;
    files.fail(FileCall::eCreateForWriting, EACCES);
    EXPECT_EQ(failure("New"), Failure(REGLIB_E_FILE_OPEN, "RegLib.3311"));
    files.fail(FileCall::eOpenForReading, EACCES);
    EXPECT_EQ(failure(), Failure(REGLIB_E_FILE_OPEN, "RegLib.3311"));
    EXPECT_EQ(CPMutex(1, 0, file.path(), 1, 1).holder().pid, 0);
    EXPECT_EQ(file.read(), "[Velquist]\n\"v\"=string:x\n");
}

TEST_F(Construction, FailsWhenADirectoryStandsInTheFilesPlace) {
    fs::create_directory(file.path());
    EXPECT_EQ(failure(), Failure(REGLIB_E_FILE_OPEN, "RegLib.3311"));
}

TEST_F(Construction, FailsWhenTheDirectoryIsMissing) {
    const std::string path = file.directory() + "/none/store.cfg";
    try {
        const CRegLibImplFile store(path.c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
        ADD_FAILURE() << "nothing thrown";
    } catch (const VQException& exception) {
        // The import takes a missing file for an empty one; only the write of the new key fails.
        EXPECT_EQ(exception.m_lCode, REGLIB_E_NOT_FOUND);
        EXPECT_STREQ(exception.m_szText, "RegLib.3311");
    }
}

TEST_F(Construction, HoldsItsLockOnlyWhileItWrites) {
    file.write("[Velquist]\n");
    const auto witness = open();
    const CFileStoreProbe probe(*witness);
    std::vector<std::string> log;
    TellingFiles files;
    files.atOpening = [&] {
        log.push_back(probe.isLocked() ? "reads, locked" : "reads");
        probe.moveStamp();  // as somebody else's change does: there is something to read at the end
    };
    files.atRename = [&] { log.push_back(probe.isLocked() ? "writes, locked" : "writes"); };
    open();
    EXPECT_THAT(log, ElementsAre("reads", "reads"));
    log.clear();
    files.atOpening = [&] { log.push_back(probe.isLocked() ? "reads, locked" : "reads"); };
    open("New");
    EXPECT_THAT(log, ElementsAre("reads", "writes, locked", "writes, locked"));
    EXPECT_FALSE(probe.isLocked());
}

TEST_F(Construction, IgnoresTheCodeOfItsLastImport) {
    file.write("[Velquist]\n\"a\"=string:x\n");
    const auto witness = open();
    const CFileStoreProbe probe(*witness);
    TellingFiles files;
    files.atOpening = [&] { probe.moveStamp(); };
    files.fail(FileCall::eOpenForReading, EACCES, 1);
    std::unique_ptr<CRegLibImplFile> store;
    ASSERT_NO_THROW(store = open());
    EXPECT_EQ(files.count(FileCall::eOpenForReading), 2);
    files.heal();
    EXPECT_EQ(get(*store, *store->RootKey(), "a"), Value::ofText("x"));
}

TEST_F(Construction, DestructionWaitsForNoLock) {
    auto store = open();
    CPMutex lock(1, 0, file.path(), 1, 1);
    ASSERT_EQ(lock.wait(CPMutex::kInfinite, nullptr), CPMutex::eOwned);
    store->m_critSec.enter(__LINE__);
    const CallElsewhere destruction([&] { store.reset(); });
    EXPECT_TRUE(destruction.returns());
    lock.release();
}

TEST_F(Construction, DestructionWritesNothing) {
    auto store = open();
    CRegKey key;
    createKey(*store, "k", key);
    const ino_t inode = file.inode();
    const FileOpsFake files;
    store.reset();
    EXPECT_THAT(files.calls(), IsEmpty());
    EXPECT_EQ(file.inode(), inode);
}

TEST_F(Construction, DestructionGivesALockBackThatWasKept) {
    auto store = open();
    store->Lock();
    store->Lock();
    store.reset();
    EXPECT_EQ(CPMutex(1, 0, file.path(), 1, 1).holder().pid, 0);
}
