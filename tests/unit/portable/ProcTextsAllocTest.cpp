// What the texts of the kernel say of locks and of mapped files. In an executable of its own, because it
// replaces what opens and lists them.
#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "portable/FileLocks.h"
#include "portable/MappedFiles.h"
#include "support/TempStore.h"

using VQRegLib::holderOfFileLock;
using VQRegLib::processThatMaps;

namespace {

bool g_isReplaced = false;
std::string g_text;                    // of every file; without one, none can be opened
std::vector<std::string> g_processes;  // the names in the directory; without one, it cannot be read
std::size_t g_next = 0;

class ProcTexts : public testing::Test {
protected:
    ProcTexts() { g_isReplaced = sizeof(void*) == 8; }
    ~ProcTexts() override {
        g_isReplaced = false;
        g_text.clear();
        g_processes.clear();
    }

    void SetUp() override {
        if (!g_isReplaced) {
            GTEST_SKIP() << "the library calls other functions here";
        }
    }
};

constexpr unsigned int kMajor = 0x1b;
constexpr unsigned int kMinor = 0x2c;
constexpr ino_t kInode = 4711;

int holderBy(const std::string& lines) {
    g_text = lines;
    return holderOfFileLock(makedev(kMajor, kMinor), kInode);
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker gives them
extern "C" {
std::FILE* __real_fopen(const char* path, const char* mode);
std::FILE* __wrap_fopen(const char* path, const char* mode);
DIR* __real_opendir(const char* path);
DIR* __wrap_opendir(const char* path);
dirent* __real_readdir(DIR* directory);
dirent* __wrap_readdir(DIR* directory);

std::FILE* __wrap_fopen(const char* path, const char* mode) {
    if (!g_isReplaced || std::strncmp(path, "/proc/", 6) != 0) {
        return __real_fopen(path, mode);
    }
    return g_text.empty() ? nullptr : ::fmemopen(g_text.data(), g_text.size(), "r");
}

DIR* __wrap_opendir(const char* path) {
    g_next = 0;
    return g_isReplaced && g_processes.empty() ? nullptr : __real_opendir(path);
}

dirent* __wrap_readdir(DIR* directory) {
    static dirent entry{};
    if (!g_isReplaced) {
        return __real_readdir(directory);
    }
    if (g_next == g_processes.size()) {
        return nullptr;
    }
    entry.d_name[g_processes[g_next++].copy(entry.d_name, sizeof entry.d_name - 1)] = '\0';
    return &entry;
}
}
// NOLINTEND(bugprone-reserved-identifier)

TEST_F(ProcTexts, TheHolderOfALockIsThatOfItsDeviceAndNumber) {
    EXPECT_EQ(holderBy("1: FLOCK  ADVISORY  WRITE 731 1b:2c:4711 0 EOF\n"), 731);
    EXPECT_EQ(holderBy("1: FLOCK  ADVISORY  WRITE 731 1b:2c:4712 0 EOF\n"), 0);
    EXPECT_EQ(holderBy("1: FLOCK  ADVISORY  WRITE 731 1c:2c:4711 0 EOF\n"), 0);
    EXPECT_EQ(holderBy("1: FLOCK  ADVISORY  WRITE 731 1b:2d:4711 0 EOF\n"), 0);
    EXPECT_EQ(holderBy("1: FLOCK  ADVISORY  WRITE 730 1c:2c:4711 0 EOF\n"
                       "2: FLOCK  ADVISORY  WRITE 731 1b:2c:4711 0 EOF\n"),
              731);
}

TEST_F(ProcTexts, LocksOfOtherKindsAndThoseWhoWaitAreNoHolders) {
    EXPECT_EQ(holderBy("1: POSIX  ADVISORY  WRITE 731 1b:2c:4711 0 EOF\n"), 0);
    EXPECT_EQ(holderBy("1: FLOCK  ADVISORY  READ  731 1b:2c:4711 0 EOF\n"), 0);
    EXPECT_EQ(holderBy("1: -> FLOCK  ADVISORY  WRITE 731 1b:2c:4711 0 EOF\n"), 0);
    EXPECT_EQ(holderBy("what nobody knows yet\n\n"), 0);
}

TEST_F(ProcTexts, AHolderWhoseNumberIsNotKnownHereIsSomebody) {
    EXPECT_EQ(holderBy("1: FLOCK  ADVISORY  WRITE 0 1b:2c:4711 0 EOF\n"), -1);
    EXPECT_EQ(holderBy("1: FLOCK  ADVISORY  WRITE -5 1b:2c:4711 0 EOF\n"), -1);
}

TEST_F(ProcTexts, WithoutThemNobodyIsKnown) {
    EXPECT_EQ(holderBy(""), 0);
    const vqtest::TempStore file;
    file.write("text");
    EXPECT_EQ(processThatMaps(file.path().c_str()), 0);
    g_processes = {"731"};
    EXPECT_EQ(processThatMaps(file.path().c_str()), 0) << "it has ended meanwhile";
}

TEST_F(ProcTexts, AFileIsMappedByTheProcessWithItsDeviceAndNumber) {
    const vqtest::TempStore file;
    file.write("text");
    struct stat status {};
    ASSERT_EQ(::stat(file.path().c_str(), &status), 0);
    const auto mapperBy = [&](unsigned int majorNumber, unsigned int minorNumber, ino_t inode) {
        char line[200];
        std::snprintf(line, sizeof line, "7f00-7f01 rw-s 00000000 %02x:%02x %llu    /a\n",
                      majorNumber, minorNumber, static_cast<unsigned long long>(inode));
        g_text = "a line of another kind\n" + std::string(line);
        return processThatMaps(file.path().c_str());
    };
    const unsigned int itsMajor = major(status.st_dev);
    const unsigned int itsMinor = minor(status.st_dev);
    g_processes = {".", "self", "12th", "0", "731"};
    EXPECT_EQ(mapperBy(itsMajor, itsMinor, status.st_ino), 731) << "those before are no processes";
    EXPECT_EQ(mapperBy(itsMajor + 1, itsMinor, status.st_ino), 0);
    EXPECT_EQ(mapperBy(itsMajor, itsMinor + 1, status.st_ino), 0);
    EXPECT_EQ(mapperBy(itsMajor, itsMinor, status.st_ino + 1), 0);
}
