// Watches of the C interface without memory, and without a descriptor. In an executable of its own, because it
// replaces a call of the system.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/inotify.h>
#include <vqreg.h>

#include <cerrno>
#include <string>

#include "support/FailingAllocation.h"
#include "support/TempStore.h"

namespace {

bool g_isRefused = false;

}  // namespace

extern "C" {

int __real_inotify_init1(int flags);
int __wrap_inotify_init1(int flags);
int __wrap_inotify_init1(int flags) {
    if (g_isRefused) {
        errno = EMFILE;
        return -1;
    }
    return __real_inotify_init1(flags);
}

}  // extern "C"

namespace {

bool isReadable(const vqreg_watch* watch) {
    pollfd source{vqreg_watch_fd(watch), POLLIN, 0};
    return ::poll(&source, 1, 0) == 1;
}

// Too long for a string to have it in itself.
const std::string kKey(40, 'k');

}  // namespace

// Who waits for the descriptor would otherwise not ask again before there is another change.
TEST(CWatchWithoutMemory, SaysThatAChangeIsLeft) {
    const std::string path = kKey + '/' + kKey;
    bool hasFailed = true;
    long n = 0;
    for (; hasFailed; ++n) {
        const vqtest::TempStore file;
        vqreg_store* const store = vqreg_open(file.path().c_str(), nullptr, nullptr);
        vqreg_watch* const watch = vqreg_watch_open(store, nullptr, nullptr);
        ASSERT_NE(watch, nullptr);
        ASSERT_EQ(vqreg_set_string(store, path.c_str(), "V", std::string(100, 'x').c_str()),
                  VQREG_OK);
        const vqreg_change* change = nullptr;
        int result = 0;
        {
            vqtest::FailingAllocation one(n);
            result = vqreg_watch_next(watch, &change);
            hasFailed = one.hasFailed();
        }
        if (result != 1) {
            EXPECT_EQ(result, VQREG_E_FAIL) << n;
            EXPECT_TRUE(isReadable(watch)) << n;
            EXPECT_EQ(vqreg_watch_next(watch, &change), 1) << n;
        }
        EXPECT_EQ(change->path, kKey) << n;
        EXPECT_EQ(vqreg_watch_next(watch, &change), 1) << n << ": and the key below";
        EXPECT_EQ(change->path, path) << n;
        EXPECT_EQ(vqreg_watch_next(watch, &change), 1) << n << ": and the value";
        EXPECT_EQ(vqreg_watch_next(watch, &change), 0) << n;
        EXPECT_FALSE(isReadable(watch)) << n;
        vqreg_watch_close(watch);
        vqreg_close(store);
    }
    EXPECT_GT(n, 1) << "nothing is allocated here";
}

TEST(CWatchWithoutDescriptor, IsRefused) {
    const vqtest::TempStore file;
    vqreg_store* const store = vqreg_open(file.path().c_str(), nullptr, nullptr);
    ASSERT_NE(store, nullptr);
    int result = VQREG_OK;
    g_isRefused = true;
    EXPECT_EQ(vqreg_watch_open(store, "", &result), nullptr);
    g_isRefused = false;
    EXPECT_EQ(result, VQREG_E_FAIL);
    vqreg_watch* const watch = vqreg_watch_open(store, "", &result);
    EXPECT_NE(watch, nullptr);
    EXPECT_EQ(result, VQREG_OK);
    vqreg_watch_close(watch);
    vqreg_close(store);
}
