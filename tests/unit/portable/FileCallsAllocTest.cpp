// The system refuses a call while a file is opened, written or looked at, or while a process looks at
// itself. In an executable of its own, because it replaces calls of the system.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "portable/AppendedFile.h"
#include "portable/FileLink.h"
#include "portable/FileOps.h"
#include "portable/FilePlace.h"
#include "portable/ObjectName.h"
#include "portable/Portable.h"
#include "support/FailingCalls.h"
#include "support/ForkedChild.h"
#include "support/TempStore.h"

namespace fs = std::filesystem;
using VQRegLib::CFileOps;
using VQRegLib::COpenFile;
using VQRegLib::CPortable;
using vqtest::FailingCall;

namespace {

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using Log = std::unique_ptr<std::FILE, CloseFile>;

class FileCalls : public testing::Test {
protected:
    void SetUp() override {
        if (sizeof(void*) != 8) {
            GTEST_SKIP() << "the library calls other functions here";
        }
        m_store.write("one\n");
    }

    mode_t mode() const {
        struct stat status {};
        EXPECT_EQ(::stat(m_store.path().c_str(), &status), 0);
        return status.st_mode & 07777;
    }

    vqtest::TempStore m_store;
    CFileOps& m_files = CFileOps::current();
};

}  // namespace

TEST_F(FileCalls, AFileThatAServerHasLentOutIsWaitedFor) {
    const FailingCall lent("open", EWOULDBLOCK, 0, 1);
    COpenFile file = m_files.openForReading(m_store.path().c_str());
    ASSERT_TRUE(file);
    char text[8] = {};
    EXPECT_EQ(m_files.read(text, sizeof text, file), 4u);
    EXPECT_STREQ(text, "one\n");
}

TEST_F(FileCalls, NothingElseIsWaitedFor) {
    const std::string link = m_store.directory() + "/link";
    fs::create_symlink(m_store.path(), link);
    const FailingCall lent("open", EWOULDBLOCK);
    EXPECT_FALSE(m_files.openForReading(link.c_str()));
    EXPECT_EQ(lent.count(), 1);
    EXPECT_FALSE(m_files.openForReading((m_store.path() + "-missing").c_str()));
    EXPECT_EQ(lent.count(), 2);
}

TEST_F(FileCalls, NothingIsReadThatCannotBeLookedAt) {
    const FailingCall refused("fstat", ENOMEM);
    EXPECT_FALSE(m_files.openForReading(m_store.path().c_str()));
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(refused.count(), 1);
}

TEST_F(FileCalls, AFileSystemThatDoesNotTellItsSizeIsWrittenTo) {
    const std::string path = m_store.path() + ".new";
    const FailingCall silent("fstatvfs", ENOSYS);
    EXPECT_TRUE(m_files.createForWriting(path.c_str(), 1ull << 60));
    EXPECT_EQ(silent.count(), 1);
}

TEST_F(FileCalls, AFileSystemOfNoBlocksOrOfBlocksWithoutASizeIsWrittenTo) {
    {
        const FailingCall empty("fstatvfs", 0);
        EXPECT_TRUE(m_files.createForWriting((m_store.directory() + "/1").c_str(), 1ull << 60))
            << "as the kernel's own file systems tell it";
        EXPECT_EQ(empty.count(), 1);
    }
    const vqtest::KnownRoom room(0, 0, 0);
    EXPECT_TRUE(m_files.createForWriting((m_store.directory() + "/2").c_str(), 1ull << 60));
}

TEST_F(FileCalls, WhatIsKeptForRootIsRoomForRootAlone) {
    const auto isMade = [&](const char* name, std::uint64_t size) {
        return bool(m_files.createForWriting((m_store.directory() + name).c_str(), size));
    };
    const vqtest::KnownRoom room(10, 20);
    EXPECT_TRUE(isMade("/1", 9 * 4096 + 1));
    EXPECT_EQ(isMade("/2", 10 * 4096), ::geteuid() == 0);
    EXPECT_EQ(isMade("/3", 19 * 4096), ::geteuid() == 0);
    EXPECT_FALSE(isMade("/4", 20 * 4096));
    EXPECT_EQ(errno, ENOSPC);
    if (::geteuid() == 0) {
        fs::permissions(m_store.directory(), fs::perms::all);
        vqtest::ForkedChild child([&] {
            if (::seteuid(65534) != 0) {
                return 0;  // the root of a user namespace, who has nobody else to be
            }
            return isMade("/5", 9 * 4096) && !isMade("/6", 10 * 4096) ? 0 : 1;
        });
        EXPECT_EQ(child.wait(), 0);
    }
}

TEST_F(FileCalls, AWriteThatTakesNothingIsAnError) {
    const std::string path = m_store.path() + ".new";
    const COpenFile file = m_files.createForWriting(path.c_str(), 8);
    ASSERT_TRUE(file);
    const std::string_view pieces[] = {"one", "two"};
    {
        const FailingCall nothing("writev", 0);
        EXPECT_EQ(m_files.writePieces(pieces, file), 0u);
        EXPECT_EQ(errno, EIO);
        EXPECT_EQ(nothing.count(), 1);
    }
    {
        const FailingCall interrupted("writev", EINTR, 0, 5);
        EXPECT_EQ(m_files.writePieces(pieces, file), 6u);
        EXPECT_EQ(interrupted.count(), 5);
    }
    EXPECT_EQ(vqtest::readFile(path), "onetwo");
}

TEST_F(FileCalls, TheModeIsSetWhereTheKernelDoesNotKnowTheCall) {
    for (const int error : {ENOSYS, EPERM}) {
        fs::permissions(m_store.path(), fs::perms::owner_read);
        const FailingCall unknown("syscall", error);
        EXPECT_EQ(m_files.makeWritableForAll(m_store.path().c_str(), nullptr), 0);
        EXPECT_EQ(mode(), 0666u);
        EXPECT_EQ(unknown.count(), 1);
    }
}

TEST_F(FileCalls, TheModeStaysWhereItCannotBeSet) {
    fs::permissions(m_store.path(), fs::perms::owner_read);
    const auto fails = [&](const char* function, int error) {
        const FailingCall refused(function, error);
        EXPECT_EQ(m_files.makeWritableForAll(m_store.path().c_str(), nullptr), -1) << function;
        EXPECT_EQ(errno, error);
        EXPECT_GT(refused.count(), 0);
    };
    fails("syscall", EROFS);
    fails("lstat", EACCES);
    const FailingCall unknown("syscall", ENOSYS);
    fails("open", EMFILE);
    fails("fstat", EIO);
    EXPECT_EQ(mode(), 0400u);
}

TEST_F(FileCalls, AFileThatCannotBeLookedAtHasTheSizeOfItsOpeningAndNoLines) {
    COpenFile file = m_files.openForReading(m_store.path().c_str());
    ASSERT_TRUE(file);
    std::ofstream(m_store.path(), std::ios::app) << "two\n";
    char text[16] = {};
    EXPECT_EQ(m_files.read(text, sizeof text, file), 8u);
    EXPECT_TRUE(m_files.hasLineBeside(m_store.path().c_str(), '#'));
    const FailingCall blind("fstat", EIO);
    EXPECT_EQ(m_files.sizeOf(file), 4u);
    EXPECT_FALSE(m_files.hasLineBeside(m_store.path().c_str(), '#'));
}

TEST_F(FileCalls, OnlyAFileHasLinesAndAModeForEverybody) {
    EXPECT_FALSE(m_files.hasLineBeside(m_store.directory().c_str(), '#'));
    EXPECT_FALSE(m_files.hasLineBeside((m_store.path() + "-missing").c_str(), '#'));
    EXPECT_FALSE(m_files.hasLineBeside(m_store.path().c_str(), 'o')) << "there is one, with an o";
    EXPECT_EQ(m_files.makeWritableForAll("/dev/null", nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_FALSE(m_files.holdsText("/dev/null"));
    EXPECT_FALSE(m_files.holdsText((m_store.path() + "-missing").c_str()));
}

TEST_F(FileCalls, ALinkOfAnotherUserIsNotFollowed) {
    const std::string link = m_store.directory() + "/link";
    fs::create_symlink("other", link);
    if (::lchown(link.c_str(), 65534, 65534) != 0) {
        GTEST_SKIP() << "only root gives links away";
    }
    EXPECT_EQ(VQRegLib::fileBehindLinks(link), link);
}

TEST_F(FileCalls, WhatCannotBeLookedAtHoldsNoTextAndKeepsItsTime) {
    std::time_t seconds = 42;
    {
        const FailingCall blind("lstat", EIO);
        EXPECT_FALSE(m_files.holdsText(m_store.path().c_str()));
    }
    const FailingCall blind("stat", EIO);
    m_files.readModificationTime(m_store.path().c_str(), seconds);
    EXPECT_EQ(seconds, 42);
}

TEST_F(FileCalls, ALinkThatCannotBeLookedAtIsNotFollowed) {
    const std::string link = m_store.directory() + "/link";
    fs::create_symlink("other", link);
    EXPECT_EQ(VQRegLib::fileBehindLinks(link), m_store.directory() + "/other");
    for (const char* function : {"open", "fstat", "readlink"}) {
        const FailingCall refused(function, EACCES);
        EXPECT_EQ(VQRegLib::fileBehindLinks(link), link) << function;
        EXPECT_GT(refused.count(), 0) << function;
    }
}

TEST_F(FileCalls, WhatTakesTheLinksPlaceWhileItIsLookedAtIsNotFollowed) {
    const std::string link = m_store.directory() + "/link";
    fs::create_symlink("other", link);
    {
        const FailingCall wasLink("readlink", 0, 0, 1);  // at the first look the file was a link
        EXPECT_EQ(VQRegLib::fileBehindLinks(m_store.path()), m_store.path());
        EXPECT_EQ(wasLink.count(), 1);
    }
    const FailingCall refused("readlinkat", ENOENT);
    EXPECT_EQ(VQRegLib::fileBehindLinks(link), link);
    EXPECT_EQ(refused.count(), 1);
}

TEST_F(FileCalls, ADirectoryThatMayNotBeSearchedIsTold) {
    using VQRegLib::eFilePlace;
    EXPECT_EQ(VQRegLib::filePlace(m_store.path()), eFilePlace::eFine);
    {
        const FailingCall closed("stat", EACCES);
        EXPECT_EQ(VQRegLib::filePlace(m_store.path()), eFilePlace::eClosedDirectory);
    }
    const FailingCall failing("stat", EIO);
    EXPECT_EQ(VQRegLib::filePlace(m_store.path()), eFilePlace::eNoPath);
    EXPECT_EQ(errno, EIO);
}

TEST_F(FileCalls, APathThatOthersCannotResolveEitherHasItsOwnText) {
    using VQRegLib::CSharedPath;
    for (const int error : {ENOENT, ENOTDIR, EACCES, ELOOP, ENAMETOOLONG}) {
        const FailingCall refused("realpath", error);
        const CSharedPath path("/tmp/./store.cfg");
        EXPECT_EQ(path.error(), 0) << error;
        EXPECT_EQ(path.text(), "/tmp/./store.cfg");
    }
    for (const int error : {ENOMEM, EIO}) {
        const FailingCall refused("realpath", error);
        EXPECT_EQ(CSharedPath("/tmp/./store.cfg").error(), error) << "others may resolve it";
    }
}

TEST_F(FileCalls, ALogIsNotOpenedWithoutALookAtIt) {
    const std::string path = m_store.directory() + "/log";
    for (const char* function : {"open", "fstat", "fdopen"}) {
        const FailingCall refused(function, EMFILE);
        EXPECT_EQ(VQRegLib::CAppendedFile::open(path.c_str()), nullptr) << function;
    }
    const Log file(VQRegLib::CAppendedFile::open(path.c_str()));
    EXPECT_NE(file, nullptr);
}

TEST_F(FileCalls, NoThreadIsMadeWithoutAttributes) {
    const FailingCall refused("pthread_attr_init", ENOMEM);
    unsigned long id = 42;
    EXPECT_EQ(CPortable::CreateThread([](void*) {}, nullptr, &id, "Worker"), 0u);
    EXPECT_EQ(id, 42u);
    EXPECT_EQ(refused.count(), 1);
}

TEST_F(FileCalls, NamesDifferWhereTheKernelHasNoRandomnessYet) {
    std::set<std::string> names;
    {
        const FailingCall refused("getrandom", EAGAIN);
        for (int i = 0; i < 100; ++i) {
            const std::string name = CPortable::newPUUID();
            EXPECT_EQ(name.size(), 36u);
            EXPECT_EQ(name[14], '4');
            names.insert(name);
        }
        EXPECT_EQ(refused.count(), 100);
    }
    names.insert(CPortable::newPUUID());
    EXPECT_EQ(names.size(), 101u);
}

TEST_F(FileCalls, AProgramHasANameWithoutProc) {
    const std::string name = CPortable::getExeName();
    const FailingCall refused("readlink", ENOENT);
    EXPECT_EQ(CPortable::getExeName(), program_invocation_short_name);
    EXPECT_EQ(CPortable::getExeName(), name);
}

TEST_F(FileCalls, ASleepGoesOnAfterASignalAndEndsWithAnyOtherError) {
    {
        const FailingCall interrupted("nanosleep", EINTR, 0, 3);
        CPortable::Sleep(1);
        EXPECT_EQ(interrupted.count(), 3);
    }
    const FailingCall refused("nanosleep", EINVAL);
    CPortable::Sleep(1);
    EXPECT_EQ(refused.count(), 1);
}

// A program that is started at any moment gets none of the descriptors.
TEST_F(FileCalls, HandNoDescriptorOn) {
    const std::string other = m_store.directory() + "/other";
    fs::create_symlink("store.cfg", other);
    EXPECT_EQ(VQRegLib::fileBehindLinks(other), m_store.path());
    const COpenFile file = m_files.openForReading(m_store.path().c_str());
    EXPECT_TRUE(m_files.hasLineBeside(m_store.path().c_str(), '#'));
    fs::permissions(m_store.path(), fs::perms::owner_read);
    {
        const FailingCall unknown("syscall", ENOSYS);
        EXPECT_EQ(m_files.makeWritableForAll(m_store.path().c_str(), nullptr), 0);
    }
    fs::copy_file(m_store.path(), m_store.path() + ".new");
    EXPECT_EQ(m_files.exchange((m_store.path() + ".new").c_str(), m_store.path().c_str()), 0);
    const Log log(VQRegLib::CAppendedFile::open((m_store.directory() + "/log").c_str()));
    EXPECT_EQ(vqtest::descriptorsHandedOn(), 0);
}
