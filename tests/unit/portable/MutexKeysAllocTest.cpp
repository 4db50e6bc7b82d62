// A program that has used up all keys of its threads. In an executable of its own, because the library asks
// for one only once.
#include <gtest/gtest.h>
#include <pthread.h>

#include <thread>
#include <vector>

#include "portable/Mutex.h"
#include "support/TempStore.h"

using VQRegLib::CPMutex;

TEST(MutexKeys, WithoutOneItIsTakenAndReleasedAllTheSame) {
    std::vector<pthread_key_t> keys;
    for (pthread_key_t key{}; ::pthread_key_create(&key, nullptr) == 0;) {
        keys.push_back(key);
    }
    const vqtest::TempStore store;
    CPMutex mutex(1, 0, store.path(), 1, 1);
    const auto isTaken = [&] {
        const bool isOwned = mutex.wait(0, nullptr) == CPMutex::eOwned;
        return isOwned && mutex.isStillHeld() && mutex.release() == 0;
    };
    EXPECT_TRUE(isTaken());
    std::thread([&] { EXPECT_TRUE(isTaken()); }).join();
    for (const pthread_key_t key : keys) {
        ::pthread_key_delete(key);
    }
    EXPECT_TRUE(isTaken()) << "and when they are free again";
}
