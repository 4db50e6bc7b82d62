// Making files, where there is room and where there is none.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>

#include "support/TinyFileSystem.h"
#include "unit/portable/FileOpsFixture.h"

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using VQRegLib::COpenFile;
using vqtest::isClosedOnExec;
using vqtest::modeOf;

namespace {

class FileWriting : public vqtest::FileOpsFixture {};

}  // namespace

TEST_F(FileWriting, CreatesAFile) {
    const mode_t old = umask(027);
    COpenFile file = m_ops.createForWriting(m_path.c_str(), 100);
    umask(old);
    ASSERT_TRUE(file);
    EXPECT_TRUE(isClosedOnExec(file));
    EXPECT_EQ(modeOf(m_path), 0640u);
    EXPECT_EQ(m_store.read(), "");
    EXPECT_EQ(write("text", file), 4u);
    EXPECT_EQ(m_store.read(), "text") << "the file must not be buffered";
    EXPECT_EQ(m_ops.close(std::move(file)), 0);
}

TEST_F(FileWriting, CreatesAFileForAllWithoutAnUmask) {
    const mode_t old = umask(0);
    COpenFile file = m_ops.createForWriting(m_path.c_str(), 0);
    umask(old);
    ASSERT_TRUE(file);
    EXPECT_EQ(modeOf(m_path), 0666u);
    EXPECT_EQ(m_ops.close(std::move(file)), 0);
}

TEST_F(FileWriting, NeverTakesOverWhatExists) {
    m_store.write("old");
    expectNotCreated(m_path, 0, EEXIST);
    EXPECT_EQ(m_store.read(), "old");
    const std::string target = m_store.directory() + "/target";
    const std::string link = m_store.directory() + "/link";
    fs::create_symlink(target, link);
    expectNotCreated(link, 0, EEXIST);
    EXPECT_FALSE(fs::exists(target));
    const std::string fifo = m_store.directory() + "/fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0666), 0);
    expectNotCreated(fifo, 0, EEXIST);
}

TEST_F(FileWriting, CreatesNothingWhereThereIsNoDirectory) {
    expectNotCreated(m_store.directory() + "/missing/file", 0, ENOENT);
}

TEST_F(FileWriting, CreatesNothingWithoutRoom) {
    const vqtest::TinyFileSystem small(m_store.directory(), "size=64k");
    expectNotCreated(m_path, 65537, ENOSPC);
    expectNotCreated(m_path, std::uint64_t{1} << 40, ENOSPC);
    EXPECT_THAT(m_store.files(), IsEmpty());
    COpenFile file = m_ops.createForWriting(m_path.c_str(), 30000);
    ASSERT_TRUE(file);
    EXPECT_EQ(m_ops.close(std::move(file)), 0);
}

TEST_F(FileWriting, CreatesNothingOnAFullDisk) {
    const vqtest::TinyFileSystem full(m_store.directory(), "size=64k");
    full.fill();
    expectNotCreated(m_path, 1, ENOSPC);
    EXPECT_THAT(m_store.files(), ElementsAre("filling"));
}

TEST_F(FileWriting, WhatItPromisedFits) {
    const vqtest::TinyFileSystem small(m_store.directory(), "size=64k");
    std::size_t size = 65536;
    COpenFile file;
    while (!file && size > 0) {
        file = m_ops.createForWriting(m_path.c_str(), --size);
    }
    ASSERT_TRUE(file);
    const std::string text(size, 'x');
    EXPECT_EQ(write(text, file), text.size());
    EXPECT_EQ(m_ops.close(std::move(file)), 0);
    EXPECT_GT(size, 32768u);
}

TEST_F(FileWriting, CreatesNothingOnAReadOnlyDisk) {
    const vqtest::TinyFileSystem place(m_store.directory(), "size=64k");
    place.makeReadOnly();
    expectNotCreated(m_path, 1, EROFS);
}

TEST_F(FileWriting, AFailedWriteIsSeen) {
    const COpenFile file(::open("/dev/full", O_WRONLY | O_CLOEXEC), {});
    ASSERT_TRUE(file);
    errno = 0;
    EXPECT_EQ(write("text", file), 0u);
    EXPECT_EQ(errno, ENOSPC);
}
