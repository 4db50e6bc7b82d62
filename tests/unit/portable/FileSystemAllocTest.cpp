// Which file systems are a network's. In an executable of its own, because it replaces a call of the system.
#include <gtest/gtest.h>
#include <sys/vfs.h>

#include <cerrno>
#include <cstdint>
#include <map>
#include <string>

#include "portable/FileSystem.h"

using VQRegLib::networkFileSystem;

namespace {

std::map<std::string, std::uint32_t> g_disks;  // by path; of all others there is none
int g_error = ENOENT;

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker gives them
extern "C" int __wrap_statfs(const char* path, struct statfs* status);
extern "C" int __wrap_statfs(const char* path, struct statfs* status) {
    const auto found = g_disks.find(path);
    if (found == g_disks.end()) {
        errno = g_error;
        return -1;
    }
    status->f_type = static_cast<decltype(status->f_type)>(found->second);
    return 0;
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

std::string kindOf(std::uint32_t magic) {
    g_disks = {{"/disk/file", magic}};
    const char* const name = networkFileSystem("/disk/file");
    return name ? name : "none";
}

class FileSystem : public testing::Test {
protected:
    void SetUp() override {
        if (sizeof(void*) != 8) {
            GTEST_SKIP() << "the library calls other functions here";
        }
        g_error = ENOENT;
    }
};

}  // namespace

// The numbers are the kernel's, and those of their makers.
TEST_F(FileSystem, IsANetworksByItsNumber) {
    const std::map<std::string, std::uint32_t> kinds = {
        {"nfs", 0x6969},      {"cifs", 0xFF534D42},  {"smb2", 0xFE534D42},  {"smb", 0x517B},
        {"9p", 0x01021997},   {"fuse", 0x65735546},  {"ceph", 0x00C36400},  {"lustre", 0x0BD00BD0},
        {"gfs2", 0x01161970}, {"ocfs2", 0x7461636F}, {"afs", 0x5346414F},   {"kafs", 0x6B414653},
        {"coda", 0x73757245}, {"gpfs", 0x47504653},  {"fhgfs", 0x19830326}, {"panfs", 0xAAD7AAEA},
        {"none", 0xEF53},
    };
    for (const auto& [name, magic] : kinds) {
        EXPECT_EQ(kindOf(magic), name);
    }
}

TEST_F(FileSystem, OfAFileThatIsMissingIsThatOfItsDirectory) {
    g_disks = {{"/disk", 0x6969}};
    EXPECT_STREQ(networkFileSystem("/disk/file"), "nfs");
    g_error = EACCES;
    EXPECT_EQ(networkFileSystem("/disk/file"), nullptr);
}

TEST_F(FileSystem, ThatCannotBeToldIsNone) {
    g_disks = {};
    EXPECT_EQ(networkFileSystem("/disk/file"), nullptr);
}
