// Writing a text that lies in many pieces.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "portable/FileDescriptor.h"
#include "portable/FileOps.h"
#include "support/TempStore.h"

using VQRegLib::CFileDescriptor;
using VQRegLib::CFileOps;
using VQRegLib::COpenFile;

namespace {

class WritePieces : public testing::Test {
protected:
    // Pieces of every length from 0 to 12, and the text that they make.
    void make(std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            m_parts.push_back(std::to_string(i * i * 7919).substr(0, i % 13));
            m_text += m_parts.back();
        }
        m_pieces.assign(m_parts.begin(), m_parts.end());
    }

    COpenFile create() {
        COpenFile file = m_ops.createForWriting(m_store.path().c_str(), 0);
        EXPECT_TRUE(file);
        return file;
    }

    std::vector<std::string> m_parts;
    std::vector<std::string_view> m_pieces;
    std::string m_text;
    vqtest::TempStore m_store;
    CFileOps& m_ops = CFileOps::current();
};

std::string readAll(int fd) {
    std::string text;
    char block[37];
    for (ssize_t size = 0; (size = ::read(fd, block, sizeof block)) != 0;) {
        if (size > 0) {
            text.append(block, static_cast<std::size_t>(size));
        }
    }
    return text;
}

}  // namespace

TEST_F(WritePieces, WritesThemOneAfterTheOther) {
    make(100);
    COpenFile file = create();
    EXPECT_EQ(m_ops.writePieces(m_pieces, file), m_text.size());
    const std::string_view end = "end";
    EXPECT_EQ(m_ops.writePieces({&end, 1}, file), 3u);
    EXPECT_EQ(m_ops.close(std::move(file)), 0);
    EXPECT_EQ(m_store.read(), m_text + "end");
}

TEST_F(WritePieces, NothingIsWrittenAtOnce) {
    COpenFile file = create();
    EXPECT_EQ(m_ops.writePieces({}, file), 0u);
    make(1);
    EXPECT_EQ(m_ops.writePieces(m_pieces, file), 0u) << "an empty piece";
    EXPECT_EQ(m_ops.close(std::move(file)), 0);
    EXPECT_EQ(m_store.read(), "");
}

TEST_F(WritePieces, TakesMoreOfThemThanTheSystemDoes) {
    make(3 * IOV_MAX + 7);
    m_pieces.insert(m_pieces.begin(), IOV_MAX + 1, std::string_view());
    COpenFile file = create();
    EXPECT_EQ(m_ops.writePieces(m_pieces, file), m_text.size());
    EXPECT_EQ(m_ops.close(std::move(file)), 0);
    EXPECT_EQ(m_store.read(), m_text);
}

// A pipe takes what it has room for, and signals interrupt the writer in the middle.
TEST_F(WritePieces, GoesOnWhereTheSystemStopsShort) {
    make(30'000);
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    const CFileDescriptor reading(ends[0]);
    ::fcntl(ends[1], F_SETPIPE_SZ, 4096);
    COpenFile file(ends[1], {});
    struct sigaction interrupt {};
    struct sigaction before {};
    interrupt.sa_handler = [](int) {};
    ASSERT_EQ(::sigaction(SIGALRM, &interrupt, &before), 0);
    std::string read;
    std::thread reader([&] {
        sigset_t alarm;
        sigemptyset(&alarm);
        sigaddset(&alarm, SIGALRM);
        ::pthread_sigmask(SIG_BLOCK, &alarm, nullptr);
        read = readAll(reading.get());
    });
    const itimerval often{{0, 200}, {0, 200}};
    ::setitimer(ITIMER_REAL, &often, nullptr);
    const std::size_t written = m_ops.writePieces(m_pieces, file);
    const itimerval never{};
    ::setitimer(ITIMER_REAL, &never, nullptr);
    EXPECT_EQ(m_ops.close(std::move(file)), 0);
    reader.join();
    ::sigaction(SIGALRM, &before, nullptr);
    EXPECT_EQ(written, m_text.size());
    EXPECT_TRUE(read == m_text) << read.size() << " bytes of " << m_text.size();
}

TEST_F(WritePieces, AnErrorInTheMiddleIsSeen) {
    make(1000);
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
    const auto limited = ::signal(SIGXFSZ, SIG_IGN);
    const rlimit small{1000, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    COpenFile file = create();
    errno = 0;
    EXPECT_EQ(m_ops.writePieces(m_pieces, file), 1000u);
    EXPECT_EQ(errno, EFBIG);
    EXPECT_EQ(m_ops.close(std::move(file)), 0);
    ::setrlimit(RLIMIT_FSIZE, &before);
    ::signal(SIGXFSZ, limited);
    EXPECT_EQ(m_store.read(), m_text.substr(0, 1000));
}
