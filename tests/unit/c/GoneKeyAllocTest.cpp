// What calls of the C interface answer when another thread deletes the key as soon as it can get in.
//
// The other thread begins to wait for the session lock while the call holds it. The call that leaves the lock
// has to wake it, and goes on when the other one is done.
#include <gtest/gtest.h>
#include <linux/futex.h>
#include <sys/syscall.h>

#include <cstdarg>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "VQRegLib.h"
#include "portable/FileOps.h"
#include "support/TempStore.h"
#include "support/Threads.h"
#include "vqreg.h"

using namespace VQRegLib;
using vqtest::CallElsewhere;

namespace {

thread_local std::function<void()> t_afterWaking;

// Does something once, when the file has been opened for reading.
class CInterruptedReading : public CFileOps {
public:
    explicit CInterruptedReading(std::function<void()> meanwhile)
        : m_meanwhile(std::move(meanwhile)) {
        CFileOps::replace(this);
    }
    ~CInterruptedReading() override { CFileOps::replace(nullptr); }

    VQRegLib::COpenFile openForReading(const char* path) override {
        VQRegLib::COpenFile opened = CFileOps::openForReading(path);
        if (m_meanwhile) {
            std::exchange(m_meanwhile, nullptr)();
        }
        return opened;
    }

private:
    std::function<void()> m_meanwhile;
};

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker gives them
extern "C" long __real_syscall(long number, ...);
extern "C" long __wrap_syscall(long number, ...);
extern "C" long __wrap_syscall(long number, ...) {
    std::va_list rest;
    va_start(rest, number);
    long arguments[6];
    for (long& argument : arguments) {
        argument = va_arg(rest, long);
    }
    va_end(rest);
    const long result = __real_syscall(number, arguments[0], arguments[1], arguments[2],
                                       arguments[3], arguments[4], arguments[5]);
    if (number == SYS_futex && arguments[1] == FUTEX_WAKE_PRIVATE && t_afterWaking) {
        std::exchange(t_afterWaking, nullptr)();
    }
    return result;
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

class GoneKey : public testing::Test {
protected:
    ~GoneKey() override { vqreg_close(store); }

    // The other thread gets in when the call leaves the lock for the first time.
    template <typename Call>
    int callWhile(std::function<void()> others, Call call) {
        EXPECT_EQ(vqreg_reload(store), VQREG_OK);
        std::unique_ptr<CallElsewhere> elsewhere;
        const CInterruptedReading interrupted([&] {
            elsewhere = std::make_unique<CallElsewhere>(std::move(others));
            EXPECT_TRUE(elsewhere->waits());
            t_afterWaking = [&] { EXPECT_TRUE(elsewhere->returns()); };
        });
        const int result = call();
        EXPECT_NE(elsewhere, nullptr);
        EXPECT_EQ(t_afterWaking, nullptr);
        return result;
    }

    void removeKey() const {
        vqreg_delete_value(store, "K", "V");
        EXPECT_EQ(vqreg_delete_key(store, "K"), VQREG_OK);
    }

    vqtest::TempStore file;
    vqreg_store* store = vqreg_open(file.path().c_str(), nullptr, nullptr);
};

}  // namespace

TEST_F(GoneKey, ThatIsMadeAnewGivesNoMoreThanTheBufferHolds) {
    const std::string bytes(600, 'x');
    ASSERT_EQ(vqreg_set_binary(store, "K", "V", bytes.data(), 600), VQREG_OK);
    std::string room(1000, '-');
    size_t size = 16;
    const int result = callWhile(
        [&] {
            removeKey();
            EXPECT_EQ(vqreg_set_binary(store, "K", "V", bytes.data(), 300), VQREG_OK);
        },
        [&] { return vqreg_get_binary(store, "K", "V", room.data(), &size); });
    EXPECT_EQ(result, VQREG_E_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 300u);
    EXPECT_EQ(room, std::string(1000, '-'));
}

TEST_F(GoneKey, ThatIsMadeAnewHasTheWholeBuffer) {
    ASSERT_EQ(vqreg_set_string(store, "K", "V", "short"), VQREG_OK);
    char room[64] = "";
    size_t size = sizeof room;
    vqreg_type type = VQREG_NONE;
    const int result = callWhile(
        [&] {
            removeKey();
            EXPECT_EQ(vqreg_set_string(store, "K", "V", "a long text"), VQREG_OK);
        },
        [&] { return vqreg_get(store, "K", "V", &type, room, &size); });
    EXPECT_EQ(result, VQREG_OK);
    EXPECT_STREQ(room, "a long text");
    EXPECT_EQ(size, sizeof "a long text");
    EXPECT_EQ(type, VQREG_STRING);
}

TEST_F(GoneKey, ThatIsNotMadeAnewIsNotFound) {
    ASSERT_EQ(vqreg_set_dword(store, "K", "V", 1), VQREG_OK);
    std::uint32_t number = 7;
    EXPECT_EQ(
        callWhile([&] { removeKey(); }, [&] { return vqreg_get_dword(store, "K", "V", &number); }),
        VQREG_E_KEY_NOT_FOUND);
    EXPECT_EQ(number, 7u);
}

TEST_F(GoneKey, IsNoFailureOfADeletionThatWasMade) {
    ASSERT_EQ(vqreg_set_dword(store, "K", "V", 1), VQREG_OK);
    int removed = VQREG_E_FAIL;
    const int result = callWhile([&] { removed = vqreg_delete_key(store, "K"); },
                                 [&] { return vqreg_delete_value(store, "K", "V"); });
    EXPECT_EQ(removed, VQREG_OK);
    EXPECT_EQ(result, VQREG_OK);
}

TEST_F(GoneKey, ThatIsMadeAnewKeepsItsValue) {
    ASSERT_EQ(vqreg_set_dword(store, "K", "V", 1), VQREG_OK);
    const int result = callWhile(
        [&] {
            EXPECT_EQ(vqreg_delete_key(store, "K"), VQREG_OK);
            EXPECT_EQ(vqreg_set_dword(store, "K", "V", 2), VQREG_OK);
        },
        [&] { return vqreg_delete_value(store, "K", "V"); });
    EXPECT_EQ(result, VQREG_OK);
    std::uint32_t number = 0;
    EXPECT_EQ(vqreg_get_dword(store, "K", "V", &number), VQREG_OK) << "it was deleted once";
    EXPECT_EQ(number, 2u);
}

TEST_F(GoneKey, IsNoFailureOfAChangeThroughAnOpenKey) {
    ASSERT_EQ(vqreg_set_dword(store, "K", "V", 1), VQREG_OK);
    vqreg_key* key = nullptr;
    ASSERT_EQ(vqreg_open_key(store, "K", 0, &key), VQREG_OK);
    EXPECT_EQ(callWhile([&] { removeKey(); }, [&] { return vqreg_key_set_dword(key, "V", 2); }),
              VQREG_OK);
    EXPECT_EQ(vqreg_key_set_dword(key, "V", 3), VQREG_E_INVALID_HANDLE);
    vqreg_close_key(key);
    ASSERT_EQ(vqreg_set_dword(store, "K", "V", 1), VQREG_OK);
    ASSERT_EQ(vqreg_open_key(store, "K", 0, &key), VQREG_OK);
    EXPECT_EQ(callWhile([&] { EXPECT_EQ(vqreg_delete_key(store, "K"), VQREG_OK); },
                        [&] { return vqreg_key_delete_value(key, "V"); }),
              VQREG_OK);
    EXPECT_EQ(vqreg_key_delete_value(key, "V"), VQREG_E_INVALID_HANDLE);
    vqreg_close_key(key);
}
