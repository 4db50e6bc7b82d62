// A directory for which there is no memory.
#include <gtest/gtest.h>
#include <pthread.h>

#include <string>
#include <thread>

#include "RegLib/instance/Directory.h"
#include "support/FailingAllocation.h"

using namespace VQRegLib;
using vqtest::FailingAllocation;

TEST(DirectoryShortage, ThrowsAndLeavesTheCreationLock) {
    std::string text = "nothing";
    long code = 0;
    {
        const FailingAllocation first(0);
        try {
            get_reglibImplDirectory();
        } catch (const VQException& exception) {
            text = exception.m_szText;
            code = exception.m_lCode;
        }
    }
    EXPECT_EQ(text, "RegLib.1826");
    EXPECT_EQ(code, REGLIB_E_FAIL);
    EXPECT_EQ(g_preglibImplDirectory, nullptr);
    int locked = -1;
    std::thread([&] {
        locked = pthread_mutex_trylock(&g_mutexGlobals);
        if (locked == 0) {
            pthread_mutex_unlock(&g_mutexGlobals);
        }
    }).join();
    EXPECT_EQ(locked, 0) << "another thread may try";
    EXPECT_NE(get_reglibImplDirectory(), nullptr);
}
