// Semaphores for tests, each under a name of its own.
#ifndef VQTEST_SEMAPHORE_FIXTURE_H
#define VQTEST_SEMAPHORE_FIXTURE_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "portable/Semaphore.h"

namespace vqtest {

/// The name of a semaphore and the file behind it, which goes with the test.
class SemaphoreTest : public testing::Test {
protected:
    ~SemaphoreTest() override {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }

    const std::string name = "vqreg-test-semaphore-" + std::to_string(::getpid());
    const std::string path = "/dev/shm/sem." + name;
};

struct SemaphoreOf : VQRegLib::CPSemaphore {
    explicit SemaphoreOf(const std::string& name, int initial = 0)
        : CPSemaphore(1, initial, 0x7fffffff, name, 1) {}
};

}  // namespace vqtest

#endif  // VQTEST_SEMAPHORE_FIXTURE_H
