#include "portable/FileDescriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

TEST(FileDescriptor, ClosesWhatItOwns) {
    int fd = -1;
    {
        const VQRegLib::CFileDescriptor file(open("/dev/null", O_RDONLY | O_CLOEXEC));
        EXPECT_TRUE(file.isOpen());
        fd = file.get();
        EXPECT_GE(fcntl(fd, F_GETFD), 0);
    }
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    EXPECT_FALSE(VQRegLib::CFileDescriptor(-1).isOpen());
}

TEST(FileDescriptor, KeepsOpenWhatItHasReleased) {
    int fd = -1;
    {
        VQRegLib::CFileDescriptor file(open("/dev/null", O_RDONLY | O_CLOEXEC));
        fd = file.release();
        EXPECT_FALSE(file.isOpen());
    }
    EXPECT_GE(fcntl(fd, F_GETFD), 0);
    close(fd);
}
