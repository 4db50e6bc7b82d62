// Reading while a writer that holds the lock has been stopped in the replacement of the file.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "portable/ObjectName.h"
#include "portable/SharedMemory.h"
#include "support/FileOpsFake.h"
#include "support/ForkedChild.h"
#include "support/StoreFixture.h"
#include "support/TraceLog.h"
#include "support/Wait.h"

namespace fs = std::filesystem;
using namespace vqtest;
using testing::Contains;
using testing::HasSubstr;

namespace {

class StoppedReplacement : public StoreTest {
protected:
    // A process holds the lock and has marked the stamp.
    void SetUp() override {
        file.write("[Velquist]\n\"a\"=string:old\n");
        store = open();
        probe = std::make_unique<CFileStoreProbe>(*store);
        writer = std::make_unique<ForkedChild>([this] {
            store->Lock();
            probe->markReplacing();
            *isMarked = true;
            for (;;) {
                ::pause();
            }
            return 0;
        });
        ASSERT_TRUE(waitUntil([&] { return isMarked->load(); }));
    }

    void TearDown() override { writer->kill(); }

    std::string get() { return vqtest::get(*store, *store->RootKey(), "a").bytes; }

    void replace(const std::string& value) const {
        const std::string other = file.path() + ".new";
        std::ofstream(other) << "[Velquist]\n\"a\"=string:" + value + "\n";
        fs::rename(other, file.path());
    }

    Common<std::atomic<bool>> isMarked;
    std::unique_ptr<CRegLibImplFile> store;
    std::unique_ptr<CFileStoreProbe> probe;
    std::unique_ptr<ForkedChild> writer;
};

const std::string kOld("old\0", 4);
const std::string kNew("new\0", 4);

}  // namespace

TEST_F(StoppedReplacement, TheFileIsReadAsItIsAndAgainOnlyWhenItIsAnother) {
    const FileOpsFake files;
    EXPECT_EQ(get(), kOld);
    EXPECT_EQ(get(), kOld);
    EXPECT_EQ(files.count(FileCall::eOpenForReading), 1);
    replace("new");
    EXPECT_EQ(get(), kNew);
    EXPECT_EQ(get(), kNew);
    EXPECT_EQ(files.count(FileCall::eOpenForReading), 2);
    EXPECT_EQ(files.count(FileCall::eCreateForWriting), 0);
}

TEST_F(StoppedReplacement, AMalformedFileAnswersTheSameEachTime) {
    const std::string other = file.path() + ".new";
    std::ofstream(other) << "no line\n";
    fs::rename(other, file.path());
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(vqtest::get(*store, *store->RootKey(), "a"), Value::failure(REGLIB_E_BAD_FORMAT));
    }
}

TEST_F(StoppedReplacement, AReadingThatFailsIsTriedAgain) {
    FileOpsFake files;
    files.throwNoMemory(FileCall::eRead);
    CRegLib::eDataType type = CRegLib::eNone;
    EXPECT_EQ(store->VQRegQueryValueType(*store->RootKey(), "a", type), REGLIB_E_FAIL);
    files.heal();
    replace("new");
    files.breakReadingAfter(12, EIO);
    EXPECT_EQ(get(), kOld);
    files.heal();
    EXPECT_EQ(get(), kNew);
}

TEST_F(StoppedReplacement, AFileThatWasReadIsNotClosedUnderTheNumberOfAnother) {
    EXPECT_EQ(get(), kOld);
    ::closefrom(3);
    std::vector<int> own;
    for (int i = 0; i < 8; ++i) {
        own.push_back(::dup(0));
    }
    replace("new");
    EXPECT_EQ(get(), kNew);
    writer->kill();
    EXPECT_EQ(get(), kNew);
    store.reset();
    for (const int descriptor : own) {
        EXPECT_EQ(::close(descriptor), 0) << descriptor;
    }
}

TEST_F(StoppedReplacement, TheDeathOfTheWriterIsMendedByTheNextReader) {
    EXPECT_EQ(get(), kOld);
    replace("new");
    writer->kill();
    EXPECT_EQ(get(), kNew);
    EXPECT_EQ(probe->sharedStamp() % 2, 0u);
    EXPECT_EQ(probe->localStamp(), probe->sharedStamp());
    EXPECT_FALSE(probe->isLocked());
}

TEST_F(StoppedReplacement, ThatLastsIsToldOnceAMinute) {
    const TraceLog log(1);
    CRegLibTrace::m_lFakeMutex = 0;
    CRegLibTrace::createInstance();
    const auto complaints = [&] {
        int count = 0;
        for (const std::string& text : log.texts(TraceLog::Addresses::eReplace)) {
            count += text.find("a writer of") != std::string::npos ? 1 : 0;
        }
        return count;
    };
    get();
    get();
    EXPECT_EQ(complaints(), 0);
    probe->markedBefore(60);
    get();
    get();
    EXPECT_EQ(complaints(), 1);
    probe->markedBefore(60);
    get();
    EXPECT_EQ(complaints(), 2);
}

TEST_F(StoppedReplacement, AStoreCanBeOpened) {
    const auto other = open();
    EXPECT_EQ(vqtest::get(*other, *other->RootKey(), "a").bytes, kOld);
}

// The making of the block is locked by somebody who does not get on.
TEST_F(StoreTest, AReaderDoesNotWaitForWhoMakesTheBlockAnew) {
    const auto store = open();
    const CFileStoreProbe probe(*store);
    const std::string object = VQRegLib::objectPath("CPBlock", file.path());
    fs::resize_file(object, 0);
    ForkedChild maker([&] {
        const int fd = ::open(object.c_str(), O_RDWR);
        struct flock lock {};
        lock.l_type = F_WRLCK;
        lock.l_whence = SEEK_SET;
        lock.l_len = 1;
        return ::fcntl(fd, F_OFD_SETLKW, &lock) == 0 ? ::pause() : 1;
    });
    ASSERT_TRUE(waitUntil([&] {
        const CPSharedMemory block(file.path(), 8, CPSharedMemory::eTry);
        return block.error() == EAGAIN;
    }));
    probe.lookAgain();
    EXPECT_EQ(vqtest::get(*store, *store->RootKey(), "none"), Value::failure(REGLIB_E_NOT_FOUND));
    EXPECT_NE(probe.localStamp(), 0u) << "with the old block";
    maker.kill();
    probe.lookAgain();
    vqtest::get(*store, *store->RootKey(), "none");
    EXPECT_EQ(CPSharedMemory(file.path(), 8).isCreator(), 0) << "it has been made now";
}
