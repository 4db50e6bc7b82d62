// The system refuses a store its lock, or the block with the stamp. In an executable of its own, because
// it replaces calls of the system.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>

#include "portable/Mutex.h"
#include "portable/ObjectName.h"
#include "support/FailingCalls.h"
#include "support/FileOpsFake.h"
#include "support/StoreFixture.h"
#include "support/TraceLog.h"
#include "support/Wait.h"

using namespace vqtest;

using testing::Contains;

namespace {

class StoreCalls : public StoreTest {
protected:
    void SetUp() override {
        if (sizeof(void*) != 8) {
            GTEST_SKIP() << "the library calls other functions here";
        }
        ASSERT_EQ(createKey(*store, "k", key), REGLIB_OK);
        ASSERT_EQ(setNumber(*store, key, "v", 1), REGLIB_OK);
    }

    void removeBlock() const {
        std::filesystem::remove(VQRegLib::objectPath("CPBlock", file.path()));
    }

    std::unique_ptr<CRegLibImplFile> store = open();
    CFileStoreProbe probe{*store};
    CRegKey key;
};

// When a text is written, somebody else begins to replace the file.
class ReplacedMeanwhile : public FileOpsFake {
public:
    explicit ReplacedMeanwhile(CFileStoreProbe& probe) : m_probe(probe) {}

    int sendOut(const VQRegLib::COpenFile& written) override {
        mark = m_probe.sharedStamp() + 1;
        m_probe.setSharedStamp(mark);
        return FileOpsFake::sendOut(written);
    }

    std::uint64_t mark = 0;

private:
    CFileStoreProbe& m_probe;
};

}  // namespace

TEST_F(StoreCalls, AChangeFailsWithoutALockAndSaysWhy) {
    const std::string before = file.read();
    {
        const FailingCall refused("flock", ENOLCK);
        EXPECT_EQ(setNumber(*store, key, "v", 2), REGLIB_E_FILE_OPEN);
        EXPECT_EQ(store->VQRegReload(), REGLIB_E_FILE_OPEN);
        EXPECT_EQ(store->VQRegBeginUpdate(), REGLIB_E_FILE_OPEN);
    }
    {
        const FailingCall refused("flock", ENOMEM);
        EXPECT_EQ(setNumber(*store, key, "v", 2), REGLIB_E_FAIL);
    }
    EXPECT_FALSE(probe.isLocked());
    EXPECT_EQ(file.read(), before);
    EXPECT_EQ(get(*store, key, "v"), Value::ofDword(1));
    EXPECT_EQ(setNumber(*store, key, "v", 2), REGLIB_OK);
}

// Its lock and its block would be others than those of everybody else.
TEST_F(StoreCalls, AStoreWhosePathCannotBeMadeOutIsNotOpened) {
    for (const int error : {ENOMEM, EIO}) {
        const FailingCall unknown("realpath", error);
        EXPECT_THROW(open(), VQException) << error;
        EXPECT_GT(unknown.count(), 0);
    }
    EXPECT_NE(open(), nullptr);
}

TEST_F(StoreCalls, NothingIsReadOrWrittenWithoutABlock) {
    removeBlock();
    const std::string before = file.read();
    {
        const FailingCall refused("shmget", ENOSPC);
        EXPECT_EQ(setNumber(*store, key, "v", 2), REGLIB_E_FILE_OPEN);
        EXPECT_FALSE(probe.isLocked());
        EXPECT_EQ(get(*store, key, "v").code, REGLIB_E_FILE_OPEN);
        EXPECT_EQ(store->VQRegReload(), REGLIB_E_FILE_OPEN);
        EXPECT_EQ(file.read(), before);
    }
    EXPECT_EQ(get(*store, key, "v"), Value::ofDword(1));
    EXPECT_EQ(setNumber(*store, key, "v", 2), REGLIB_OK);
}

TEST_F(StoreCalls, AReaderWithoutABlockTriesAgainAtOnce) {
    removeBlock();
    probe.lookAgain();
    {
        const FailingCall refused("shmget", ENOSPC);
        EXPECT_EQ(get(*store, key, "v").code, REGLIB_E_FILE_OPEN);
        EXPECT_EQ(get(*store, key, "v").code, REGLIB_E_FILE_OPEN);
        EXPECT_EQ(refused.count(), 2);
    }
    EXPECT_EQ(get(*store, key, "v"), Value::ofDword(1));
}

TEST_F(StoreCalls, AReaderGoesOnWithTheOldBlockWhileSomebodyMakesAnother) {
    removeBlock();
    probe.lookAgain();
    const FileOpsFake files;
    const FailingCall making("fcntl", EAGAIN);
    EXPECT_EQ(get(*store, key, "v"), Value::ofDword(1));
    EXPECT_GT(making.count(), 0);
    EXPECT_EQ(files.count(FileCall::eOpenForReading), 0) << "nothing has changed";
}

TEST_F(StoreCalls, AReaderLooksAtTheBlockOnceASecond) {
    EXPECT_TRUE(waitUntil([&] {  // a second may pass between the two
        probe.lookAgain();
        EXPECT_EQ(get(*store, key, "v"), Value::ofDword(1));
        const FailingCall blind("fstat", EIO);
        EXPECT_EQ(get(*store, key, "v"), Value::ofDword(1));
        return blind.count() == 0;
    }));
}

// The counter beside the lock is of another block than this store's: there is a newer one.
TEST_F(StoreCalls, AChangeFailsWhereTheNewerBlockCannotBeHad) {
    const std::string lock = VQRegLib::objectPath("CPLock", file.path());
    {
        std::fstream note(lock, std::ios::in | std::ios::out | std::ios::binary);
        note.seekp(offsetof(VQRegLib::CHolderNote, counterTag));
        const std::uint64_t other = 77;
        note.write(reinterpret_cast<const char*>(&other), sizeof other);
    }
    removeBlock();
    {
        const FailingCall refused("shmget", ENOSPC);
        EXPECT_EQ(setNumber(*store, key, "v", 2), REGLIB_E_FILE_OPEN);
        EXPECT_FALSE(probe.isLocked());
    }
    EXPECT_EQ(setNumber(*store, key, "v", 2), REGLIB_OK);
}

TEST_F(StoreCalls, AFileThatCannotBeOpenedKeepsTheTreeFromBeingRead) {
    probe.moveStamp();
    {
        const FailingCall refused("open", EMFILE);
        EXPECT_EQ(get(*store, key, "v").code, REGLIB_E_FILE_OPEN);
        probe.markReplacing();
        EXPECT_EQ(get(*store, key, "v").code, REGLIB_E_FILE_OPEN);
    }
    EXPECT_EQ(get(*store, key, "v"), Value::ofDword(1));
}

// Nobody waits for a writer that has been stopped: the file is read as it is, if it can be.
TEST_F(StoreCalls, AGlanceBesideAStoppedWriterTellsThatTheFileCannotBeOpened) {
    CPMutex mutex(1, 0, file.path(), 1, 1);
    std::atomic<bool> isHeld{false};
    std::atomic<bool> isOver{false};
    std::thread writer([&] {
        isHeld.store(mutex.wait(0, nullptr) == CPMutex::eOwned);
        isOver.wait(false);  // without a call that could be made to fail
    });
    EXPECT_TRUE(waitUntil([&] { return isHeld.load(); }));
    probe.markReplacing();
    {
        const FailingCall refused("open", EMFILE);
        EXPECT_EQ(get(*store, key, "v").code, REGLIB_E_FILE_OPEN);
        EXPECT_GT(refused.count(), 0);
    }
    {
        const FailingCall naps("nanosleep", 0);
        EXPECT_EQ(get(*store, key, "v"), Value::ofDword(1));
        EXPECT_EQ(naps.count(), 0);
    }
    isOver.store(true);
    isOver.notify_one();
    writer.join();
}

// Two replace the file when the lock's object is removed under one of them. Whichever finds that, at
// whatever look, leaves the mark of the other one, for which the holder of a new lock waits.
TEST_F(StoreCalls, AMarkIsNotTakenBackWithThatOfAnother) {
    ReplacedMeanwhile files(probe);
    int refused = 0;
    for (unsigned look = 0; look < 12; ++look) {
        ASSERT_EQ(setNumber(*store, key, "v", 1), REGLIB_OK);
        files.mark = 0;
        const FailingCall gone("fstat", EIO, static_cast<int>(look), 1);
        if (setNumber(*store, key, "v", 2 + look) < 0 && files.mark != 0) {
            ++refused;
            EXPECT_EQ(probe.sharedStamp(), files.mark) << "at look " << look;
        }
    }
    EXPECT_EQ(refused, 2) << "before it marks the file, and behind that";
}

TEST(StoreCallsTrace, ABlockThatCannotBeHadIsToldOnceAMinute) {
    if (sizeof(void*) != 8) {
        GTEST_SKIP() << "the library calls other functions here";
    }
    const TraceLog log(8);
    CRegLibTrace::m_lFakeMutex = 0;
    const TempStore file;
    CRegLibImplFile store(file.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
    CRegKey key;
    ASSERT_EQ(createKey(store, "k", key), REGLIB_OK);
    std::filesystem::remove(VQRegLib::objectPath("CPBlock", file.path()));
    const auto told = [&] {
        const auto texts = log.texts(TraceLog::Addresses::eReplace);
        return std::count(texts.begin(), texts.end(),
                          "(Error) CRegLibImplFile::Lock (0x@), shared memory failed, errno 28");
    };
    {
        const FailingCall refused("shmget", ENOSPC);
        EXPECT_EQ(setNumber(store, key, "v", 2), REGLIB_E_FILE_OPEN);
        EXPECT_EQ(setNumber(store, key, "v", 2), REGLIB_E_FILE_OPEN);
    }
    EXPECT_EQ(told(), 1);
}

TEST(StoreCallsTrace, ABlockOfAnotherNamespaceIsToldAlways) {
    if (sizeof(void*) != 8) {
        GTEST_SKIP() << "the library calls other functions here";
    }
    const TraceLog log(1);
    CRegLibTrace::m_lFakeMutex = 0;
    const TempStore file;
    CRegLibImplFile store(file.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
    CRegKey key;
    ASSERT_EQ(createKey(store, "k", key), REGLIB_OK);
    const std::string object = VQRegLib::objectPath("CPBlock", file.path());
    VQRegLib::CBlockRecord record{};
    std::fstream block(object, std::ios::in | std::ios::out | std::ios::binary);
    block.read(reinterpret_cast<char*>(&record), sizeof record);
    record.ipcNamespace += 1;
    record.id += 1;
    block.seekp(0);
    block.write(reinterpret_cast<const char*>(&record), sizeof record);
    block.close();
    const FailingCall noSegment("shmctl", EINVAL);
    const FailingCall inUse("fcntl", EAGAIN, 1);  // by those of the other namespace
    EXPECT_EQ(setNumber(store, key, "v", 2), REGLIB_E_FILE_OPEN);
    EXPECT_THAT(log.texts(TraceLog::Addresses::eReplace),
                Contains("(Error) CRegLibImplFile::Lock (0x@), \"" + file.path() +
                         "\" is in use in another IPC namespace"));
}
