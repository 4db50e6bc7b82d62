// Which processes have a file in their memory.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "portable/MappedFiles.h"
#include "support/MappingChild.h"
#include "support/TempStore.h"

using VQRegLib::processThatMaps;
using vqtest::MappingChild;

namespace {

class MappedFiles : public testing::Test {
protected:
    MappedFiles() { file.write("text"); }

    vqtest::TempStore file;
};

}  // namespace

TEST_F(MappedFiles, TellAProcessThatMapsTheFile) {
    EXPECT_EQ(processThatMaps(file.path().c_str()), 0);
    {
        const MappingChild child(file.path());
        EXPECT_EQ(processThatMaps(file.path().c_str()), child.pid());
    }
    EXPECT_EQ(processThatMaps(file.path().c_str()), 0);
}

TEST_F(MappedFiles, TellOtherFilesApart) {
    const MappingChild child(file.path());
    std::ofstream(file.backupPath()) << "text";
    EXPECT_EQ(processThatMaps(file.backupPath().c_str()), 0);
    EXPECT_EQ(processThatMaps((file.path() + "none").c_str()), 0);
    EXPECT_EQ(processThatMaps(file.directory().c_str()), 0);
    ASSERT_EQ(::unlink(file.path().c_str()), 0);
    file.write("text");
    EXPECT_EQ(processThatMaps(file.path().c_str()), 0) << "it maps what had that name before";
}

// Whoever may write where the file is expected could lead elsewhere.
TEST_F(MappedFiles, AreNotLookedForThroughLinks) {
    const MappingChild child(file.path());
    ASSERT_EQ(::symlink(file.path().c_str(), file.backupPath().c_str()), 0);
    EXPECT_EQ(processThatMaps(file.backupPath().c_str()), 0);
}

// The name of a mapped file is the end of its line, and everybody may choose one.
TEST_F(MappedFiles, AreNotTakenFromTheNamesOfOthers) {
    struct stat status {};
    ASSERT_EQ(::stat(file.path().c_str(), &status), 0);
    char line[100];
    std::snprintf(line, sizeof line, "7f00-7f01 rw-s 00000000 %02x:%02x %llu ",
                  major(status.st_dev), minor(status.st_dev),
                  static_cast<unsigned long long>(status.st_ino));
    std::vector<std::string> names;  // in each of them, the line is somewhere else
    for (std::size_t size = 1; size <= 200; ++size) {
        names.push_back(file.directory() + "/" + std::string(size, 'x') + line);
        std::ofstream(names.back()) << "text";
    }
    const MappingChild child(names);
    EXPECT_EQ(processThatMaps(file.path().c_str()), 0);
    EXPECT_EQ(processThatMaps(names.back().c_str()), child.pid());
}
