// What another user puts in the place of an object before anybody has opened the store.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "VQRegLib.h"
#include "support/ChildLife.h"
#include "support/ForkedChild.h"
#include "support/ObjectAttacks.h"
#include "support/TempStore.h"
#include "support/WatchedStore.h"

using namespace VQRegLib;
using vqtest::asNobody;
using vqtest::Attack;
using vqtest::fillWithGarbage;
using vqtest::ForkedChild;
using vqtest::TempStore;

namespace {

class PlantedObject : public testing::Test {
protected:
    void SetUp() override {
        if (asNobody([] { return 0; })->wait() != 0) {
            GTEST_SKIP() << "a process may not become another user here";
        }
        // What the objects are called is known from the path; here it is looked up.
        ASSERT_NE(vqtest::openSession(store.path())->RootKey(), nullptr);
        for (const std::string& name : store.sharedObjects()) {
            m_objects.push_back("/dev/shm/" + name);
        }
        ASSERT_EQ(m_objects.size(), 2u);
        std::ofstream(victim) << kSecret;
        ASSERT_EQ(::chmod(victim.c_str(), 0600), 0);
    }

    static constexpr char kSecret[] = "nobody else's";

    // Each object in turn. Whoever opens the store then is told that it cannot be had, or has it.
    void expectAnswer(const Attack& plant) {
        for (const std::string& object : m_objects) {
            SCOPED_TRACE(object);
            for (const std::string& each : m_objects) {
                std::filesystem::remove_all(each);
            }
            ASSERT_EQ(asNobody([&] { return plant(object) ? 0 : 1; })->wait(), 0);
            expectOpeningEnds();
            EXPECT_EQ(vqtest::readFile(victim), kSecret);
            EXPECT_EQ(std::filesystem::status(victim).permissions(), std::filesystem::perms{0600});
            EXPECT_FALSE(std::filesystem::exists(store.directory() + "/planted"));
        }
        for (const std::string& object : m_objects) {
            std::filesystem::remove_all(object);
        }
        EXPECT_EQ(openAndSet(1), 0) << "with the thing gone, all is well";
    }

    TempStore store;
    const std::string victim = store.directory() + "/victim";

private:
    // 0 when the change was made, 1 when the store could not be had, 2 when it could not be changed.
    int openAndSet(unsigned long number) const {
        const pid_t parent = ::getpid();
        return ForkedChild([&] {
                   vqtest::endWithParent(parent, 30);
                   const auto session = vqtest::openSession(store.path());
                   if (!session->RootKey()) {
                       return 1;
                   }
                   return vqtest::setNumber(*session, "A", number) == REGLIB_OK ? 0 : 2;
               })
            .wait();
    }

    void expectOpeningEnds() const {
        const int first = openAndSet(1);
        EXPECT_TRUE(first >= 0 && first <= 2) << first;
        const int second = openAndSet(2);
        EXPECT_EQ(second, first) << "it depends on nothing else";
    }

    std::vector<std::string> m_objects;
};

}  // namespace

TEST_F(PlantedObject, ThatIsALinkIsNotFollowed) {
    expectAnswer(
        [this](const std::string& path) { return ::symlink(victim.c_str(), path.c_str()) == 0; });
}

TEST_F(PlantedObject, ThatIsALinkToNothingMakesNothing) {
    expectAnswer([target = store.directory() + "/planted"](const std::string& path) {
        return ::symlink(target.c_str(), path.c_str()) == 0;
    });
}

TEST_F(PlantedObject, ThatIsAFifoKeepsNobodyWaiting) {
    expectAnswer([](const std::string& path) { return ::mkfifo(path.c_str(), 0666) == 0; });
}

TEST_F(PlantedObject, ThatIsADirectoryKeepsNobodyWaiting) {
    expectAnswer([](const std::string& path) { return ::mkdir(path.c_str(), 0777) == 0; });
}

TEST_F(PlantedObject, ThatIsAFileOfGarbageKeepsNobodyWaiting) {
    expectAnswer([](const std::string& path) {
        std::ofstream(path) << "garbage";
        return ::chmod(path.c_str(), 0666) == 0 && fillWithGarbage(path);
    });
}

TEST_F(PlantedObject, ThatNobodyElseMayOpenKeepsNobodyWaiting) {
    expectAnswer([](const std::string& path) {
        std::ofstream(path) << "garbage";
        return ::chmod(path.c_str(), 0) == 0;
    });
}
