// Who waits for news of a file hears of that file, in whatever way it changes, and of no other.
#include "portable/FileNews.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "support/TempStore.h"
#include "support/Wait.h"

namespace fs = std::filesystem;
using VQRegLib::CFileNews;

namespace {

class FileNews : public testing::Test {
protected:
    FileNews() {
        file.write("one\n");
        EXPECT_EQ(news.open(file.path()), 0);
        EXPECT_FALSE(news.isBlind());
    }

    bool isReadable() const {
        pollfd waiting{news.descriptor(), POLLIN, 0};
        return ::poll(&waiting, 1, 0) == 1;
    }

    // A text takes the place of another one.
    void replace(const std::string& path) const {
        std::ofstream(path + ".new") << "two\n";
        fs::rename(path + ".new", path);
    }

    vqtest::TempStore file;
    CFileNews news;
};

bool isOpen(int descriptor) {
    return ::fcntl(descriptor, F_GETFD) >= 0;
}

}  // namespace

TEST_F(FileNews, ComeWithEachKindOfChange) {
    EXPECT_FALSE(news.take()) << "nothing has happened";
    replace(file.path());
    EXPECT_TRUE(isReadable());
    EXPECT_TRUE(news.take());
    EXPECT_FALSE(isReadable());
    EXPECT_FALSE(news.take()) << "once";
    file.write("by hand\n");
    EXPECT_TRUE(news.take());
    ASSERT_EQ(::chmod(file.path().c_str(), 0600), 0);
    EXPECT_TRUE(news.take());
    fs::remove(file.path());
    EXPECT_TRUE(news.take());
    file.write("again\n");
    EXPECT_TRUE(news.take());
    fs::rename(file.path(), file.path() + ".away");
    EXPECT_TRUE(news.take());
}

// Whoever looked before would find that all is gone.
TEST_F(FileNews, OfAFileThatIsMadeByHandComeWhenItIsWritten) {
    fs::remove(file.path());
    EXPECT_TRUE(news.take());
    std::ofstream text(file.path());
    EXPECT_FALSE(news.take());
    ASSERT_EQ(::chmod(file.path().c_str(), 0600), 0);
    EXPECT_FALSE(news.take());
    text << "by hand\n";
    text.close();
    EXPECT_TRUE(news.take());
    const vqtest::TempStore whole(file.directory());
    whole.write("linked\n");
    fs::remove(file.path());
    EXPECT_TRUE(news.take());
    fs::create_hard_link(whole.path(), file.path());
    EXPECT_TRUE(news.take());
}

TEST_F(FileNews, OfOtherFilesAreNone) {
    replace(file.path() + ".bak");
    EXPECT_TRUE(isReadable());
    EXPECT_FALSE(news.take());
    EXPECT_FALSE(isReadable()) << "an event loop does not turn for ever";
}

TEST_F(FileNews, AreNotLostWhileTheyAreTaken) {
    std::atomic<bool> isOver{false};
    std::atomic<int> taken{0};
    std::thread taker([&] {
        while (!isOver) {
            taken += news.take();
        }
    });
    bool isTold = true;
    for (int i = 0; i < 2'000 && isTold; ++i) {
        const int before = taken;
        replace(file.path());
        isTold = vqtest::waitUntil([&] { return taken > before; });
    }
    isOver = true;
    taker.join();
    EXPECT_TRUE(isTold) << "one that comes just then";
}

TEST_F(FileNews, GoOnInADirectoryThatTakesThePlace) {
    const std::string away = file.directory() + "-away";
    fs::rename(file.directory(), away);
    EXPECT_FALSE(news.take());
    EXPECT_TRUE(news.isBlind());
    fs::create_directory(file.directory());
    EXPECT_TRUE(news.take()) << "whatever is there now";
    EXPECT_FALSE(news.isBlind());
    EXPECT_FALSE(news.take());
    file.write("one\n");
    EXPECT_TRUE(news.take());
    replace(away + file.path().substr(file.path().rfind('/')));
    EXPECT_FALSE(news.take()) << "it is another file now";
    fs::remove_all(away);
}

TEST_F(FileNews, EndWithWhatTheyWereReadFrom) {
    const int descriptor = news.descriptor();
    EXPECT_TRUE(isOpen(descriptor));
    news.close();
    EXPECT_FALSE(isOpen(descriptor));
    EXPECT_LT(news.descriptor(), 0);
    EXPECT_TRUE(news.isBlind());
    int second = -1;
    {
        CFileNews others;
        ASSERT_EQ(others.open(file.path()), 0);
        second = others.descriptor();
    }
    EXPECT_FALSE(isOpen(second));
}

TEST_F(FileNews, OfADirectoryThatIsMissingCannotBeHad) {
    EXPECT_EQ(news.open(file.directory() + "/none/store.cfg"), ENOENT);
    EXPECT_LT(news.descriptor(), 0);
    EXPECT_TRUE(news.isBlind());
}
