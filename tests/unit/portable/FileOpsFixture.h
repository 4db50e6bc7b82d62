// A directory for files, and the operations on them.
#ifndef VQTEST_PORTABLE_FILE_OPS_FIXTURE_H
#define VQTEST_PORTABLE_FILE_OPS_FIXTURE_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <string_view>

#include "portable/FileOps.h"
#include "support/TempStore.h"

namespace vqtest {

inline mode_t modeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777u;
}

inline bool isClosedOnExec(const VQRegLib::COpenFile& file) {
    return (fcntl(file.descriptor(), F_GETFD) & FD_CLOEXEC) != 0;
}

class FileOpsFixture : public testing::Test {
protected:
    void expectUnreadable(const std::string& path, int error) {
        errno = 0;
        EXPECT_FALSE(m_ops.openForReading(path.c_str())) << path;
        EXPECT_EQ(errno, error) << path;
    }

    void expectNotCreated(const std::string& path, std::uint64_t size, int error) {
        errno = 0;
        EXPECT_FALSE(m_ops.createForWriting(path.c_str(), size)) << path;
        EXPECT_EQ(errno, error) << path;
    }

    std::size_t write(std::string_view text, const VQRegLib::COpenFile& file) {
        return m_ops.writePieces({&text, 1}, file);
    }

    vqtest::TempStore m_store;
    const std::string m_path = m_store.path();
    VQRegLib::CFileOps& m_ops = VQRegLib::CFileOps::current();
};

}  // namespace vqtest

#endif  // VQTEST_PORTABLE_FILE_OPS_FIXTURE_H
