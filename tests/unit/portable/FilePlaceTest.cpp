// What stands in the way of who wants to use a file.
#include "portable/FilePlace.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "support/ReadOnlyDirectory.h"
#include "support/TempStore.h"
#include "support/TraceLog.h"

namespace fs = std::filesystem;
using VQRegLib::eFilePlace;
using VQRegLib::filePlace;

namespace {

class FilePlace : public testing::Test {
protected:
    std::string in(const std::string& name) const { return m_store.directory() + "/" + name; }

    vqtest::TempStore m_store;
};

}  // namespace

TEST_F(FilePlace, AFileMayBeThereOrBeMade) {
    EXPECT_EQ(filePlace(m_store.path()), eFilePlace::eFine);
    m_store.write("x");
    EXPECT_EQ(filePlace(m_store.path()), eFilePlace::eFine);
}

TEST_F(FilePlace, ItsDirectoryMayBeMissingOrBeSomethingElse) {
    m_store.write("x");
    EXPECT_EQ(filePlace(in("missing/a")), eFilePlace::eNoDirectory);
    EXPECT_EQ(filePlace(m_store.path() + "/a"), eFilePlace::eNoSuchDirectory);
    EXPECT_EQ(filePlace(m_store.path() + "/a/b"), eFilePlace::eNoDirectory);
}

TEST_F(FilePlace, SomethingElseMayBeInItsPlace) {
    fs::create_directory(in("directory"));
    fs::create_symlink("nowhere", in("link"));
    ASSERT_EQ(::mkfifo(in("fifo").c_str(), 0600), 0);
    for (const char* const name : {"directory", "link", "fifo"}) {
        EXPECT_EQ(filePlace(in(name)), eFilePlace::eNoFile) << name;
    }
}

TEST_F(FilePlace, OfAPathThatCannotBeFollowedTheSystemSaysWhy) {
    fs::create_symlink("circle", in("circle"));
    EXPECT_EQ(filePlace(in("circle/a")), eFilePlace::eNoPath);
    EXPECT_EQ(errno, ELOOP);
    EXPECT_EQ(filePlace(in(std::string(300, 'a'))), eFilePlace::eNoPath);
    EXPECT_EQ(errno, ENAMETOOLONG);
}

TEST_F(FilePlace, InADirectoryThatNobodyMayWriteAFileHasToBeThere) {
    ASSERT_TRUE(vqtest::inPrivateRoot()) << "tests that mount must run under private_root";
    const vqtest::ReadOnlyDirectory directory(in("closed"), "x");
    EXPECT_EQ(filePlace(directory.file()), eFilePlace::eFine);
    EXPECT_EQ(filePlace(directory.file() + "-other"), eFilePlace::eReadOnlyDirectory);
}
