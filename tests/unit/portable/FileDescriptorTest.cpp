#include "portable/FileDescriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <optional>
#include <thread>

#include "portable/OpenFile.h"

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

TEST(FileDescriptor, IsClosedByAThreadThatHasBeenCancelledAndGoesOn) {
    std::atomic<bool> isClosed{false};
    std::thread([&] {
        std::optional<VQRegLib::CFileDescriptor> file(open("/dev/null", O_RDONLY | O_CLOEXEC));
        VQRegLib::COpenFile other(open("/dev/null", O_RDONLY | O_CLOEXEC), {});
        const int fd = file->get();
        pthread_cancel(pthread_self());
        file.reset();
        const int result = other.close();
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
        isClosed = result == 0 && fcntl(fd, F_GETFD) == -1;
    }).join();
    EXPECT_TRUE(isClosed);
}
