#include "portable/SharedMemory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "portable/Mutex.h"
#include "portable/ObjectName.h"
#include "support/ForkedChild.h"
#include "support/TempStore.h"
#include "support/TinyFileSystem.h"
#include "support/Wait.h"

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using VQRegLib::CPSharedMemory;
using vqtest::ForkedChild;

namespace {

class SharedMemory : public testing::Test {
protected:
    static std::uint64_t& number(const CPSharedMemory& memory) {
        return *static_cast<std::uint64_t*>(memory.getAddress());
    }

    vqtest::TempStore m_store;
    const std::string m_path = m_store.path();
    const std::string m_object = VQRegLib::objectPath("CPBlock", m_path);
};

}  // namespace

TEST_F(SharedMemory, TellsWhoHasMadeIt) {
    const CPSharedMemory first(m_path, 8);
    ASSERT_NE(first.getAddress(), nullptr) << first.error();
    EXPECT_NE(first.isCreator(), 0);
    EXPECT_EQ(first.error(), 0);
    const CPSharedMemory second(m_path, 8);
    ASSERT_NE(second.getAddress(), nullptr);
    EXPECT_EQ(second.isCreator(), 0);
}

TEST_F(SharedMemory, IsZeroAtFirst) {
    const CPSharedMemory memory(m_path, 8);
    ASSERT_NE(memory.getAddress(), nullptr);
    EXPECT_EQ(number(memory), 0u);
}

TEST_F(SharedMemory, IsSharedWithinAProcess) {
    const CPSharedMemory first(m_path, 8);
    const CPSharedMemory second(m_path, 8);
    const CPSharedMemory other(m_path + "2", 8);
    number(first) = 5;
    EXPECT_EQ(number(second), 5u);
    EXPECT_EQ(number(other), 0u);
}

TEST_F(SharedMemory, IsSharedWithOtherProcesses) {
    const CPSharedMemory memory(m_path, 8);
    number(memory) = 7;
    EXPECT_EQ(ForkedChild([this] {
                  const CPSharedMemory own(m_path, 8);
                  const bool isSeen = number(own) == 7;
                  number(own) = 0x0123456789ABCDEFu;
                  return own.isCreator() == 0 && isSeen ? 0 : 1;
              }).wait(),
              0);
    EXPECT_EQ(number(memory), 0x0123456789ABCDEFu);
}

TEST_F(SharedMemory, IsMadeAnewWhenItsUsersAreGone) {
    EXPECT_EQ(ForkedChild([this] {
                  const CPSharedMemory memory(m_path, 8);
                  number(memory) = 7;
                  return memory.isCreator();
              }).wait(),
              1);
    const CPSharedMemory memory(m_path, 8);
    EXPECT_EQ(memory.isCreator(), 1);
    EXPECT_EQ(number(memory), 0u);
}

// The attack: whoever cuts a mapped file short kills everybody who looks at the mapping.
TEST_F(SharedMemory, CuttingItsFileShortHurtsNobody) {
    const CPSharedMemory memory(m_path, 8);
    number(memory) = 7;
    fs::resize_file(m_object, 0);
    EXPECT_EQ(number(memory), 7u);
    number(memory) = 8;
    CPSharedMemory again(m_path, 8);
    ASSERT_NE(again.getAddress(), nullptr);
    EXPECT_EQ(number(again), 0u) << "who comes later has another block";
    EXPECT_TRUE(again.isCurrent());
}

TEST_F(SharedMemory, KnowsWhetherOthersStillGetTheSame) {
    CPSharedMemory memory(m_path, 8);
    EXPECT_TRUE(memory.isCurrent());
    fs::remove(m_object);
    EXPECT_FALSE(memory.isCurrent());
    CPSharedMemory second(m_path, 8);
    EXPECT_EQ(second.isCreator(), 1);
    EXPECT_FALSE(memory.isCurrent());
    EXPECT_TRUE(second.isCurrent());
    const std::string record = vqtest::readFile(m_object);
    for (std::size_t at = 16; at < record.size(); ++at) {
        std::string other = record;
        other[at] = static_cast<char>(other[at] + 1);
        std::ofstream(m_object, std::ios::binary) << other;
        EXPECT_FALSE(second.isCurrent()) << at;
    }
    std::ofstream(m_object, std::ios::binary) << record;
    EXPECT_TRUE(second.isCurrent());
}

// When nobody has touched the named file for a while, it is not read each time; what is done to it
// then is seen all the same.
TEST_F(SharedMemory, SeesAtOnceWhatIsDoneToAnOldObject) {
    CPSharedMemory memory(m_path, 8);
    const std::string record = vqtest::readFile(m_object);
    const auto grewOld = [&] {
        const auto written = fs::last_write_time(m_object);
        return vqtest::waitUntil([&] {
                   return fs::file_time_type::clock::now() - written >
                          std::chrono::milliseconds(200);
               }) &&
               memory.isCurrent() && memory.isCurrent();
    };
    ASSERT_TRUE(grewOld());
    fs::resize_file(m_object, 0);
    EXPECT_FALSE(memory.isCurrent()) << "cut short";
    std::ofstream(m_object, std::ios::binary) << record;
    ASSERT_TRUE(grewOld());
    std::ofstream(m_object, std::ios::binary | std::ios::in).seekp(20) << 'x';
    EXPECT_FALSE(memory.isCurrent()) << "scribbled upon";
    std::ofstream(m_object, std::ios::binary) << record;
    ASSERT_TRUE(grewOld());
    fs::rename(m_object, m_object + ".away");
    EXPECT_FALSE(memory.isCurrent()) << "moved away";
    fs::rename(m_object + ".away", m_object);
    ASSERT_TRUE(grewOld());
    fs::remove(m_object);
    EXPECT_FALSE(memory.isCurrent()) << "removed";
}

TEST_F(SharedMemory, DistrustedItIsReadAgain) {
    CPSharedMemory memory(m_path, 8);
    CPSharedMemory same(m_path, 8);
    EXPECT_EQ(memory.tag(), same.tag());
    EXPECT_NE(memory.tag(), 0u);
    memory.distrust();
    EXPECT_TRUE(memory.isCurrent());
    fs::resize_file(m_object, 0);
    const CPSharedMemory another(m_path, 8);
    EXPECT_NE(memory.tag(), another.tag());
}

TEST_F(SharedMemory, SurvivesThatTheProgramClosesItsDescriptor) {
    CPSharedMemory memory(m_path, 8);
    number(memory) = 7;
    ::closefrom(3);
    EXPECT_TRUE(memory.isCurrent());
    EXPECT_EQ(number(CPSharedMemory(m_path, 8)), 7u);
}

TEST_F(SharedMemory, OfAnotherIpcNamespaceIsRefusedWhileItIsUsed) {
    const auto tryElsewhere = [this] {
        return ForkedChild([this] {
                   if (::unshare(CLONE_NEWIPC) != 0) {
                       return 100;
                   }
                   const CPSharedMemory memory(m_path, 8);
                   return memory.getAddress() ? 0 : memory.error();
               })
            .wait();
    };
    {
        CPSharedMemory memory(m_path, 8);
        number(memory) = 7;
        const int refused = tryElsewhere();
        if (refused == 100) {
            GTEST_SKIP() << "no IPC namespaces can be made here";
        }
        EXPECT_EQ(refused, EXDEV);
        EXPECT_TRUE(memory.isCurrent());
        EXPECT_EQ(number(memory), 7u);
    }
    EXPECT_EQ(tryElsewhere(), 0) << "nobody uses it any more";
    const CPSharedMemory memory(m_path, 8);
    EXPECT_EQ(memory.error(), 0) << "the other namespace has ended";
}

TEST_F(SharedMemory, OneOfManyAtOnceMakesIt) {
    constexpr int kChildren = 8;
    struct Counts {
        std::atomic<int> ready{0};
        std::atomic<int> opened{0};
        std::atomic<int> creators{0};
    };
    for (int attempt = 0; attempt < 5; ++attempt) {
        const std::string path = m_path + std::to_string(attempt);
        vqtest::Common<Counts> counts;
        std::vector<std::unique_ptr<ForkedChild>> children;
        for (int i = 0; i < kChildren; ++i) {
            children.push_back(std::make_unique<ForkedChild>([&] {
                ++counts->ready;
                while (counts->ready.load() < kChildren) {
                    std::this_thread::yield();
                }
                const CPSharedMemory memory(path, 8);
                if (memory.getAddress()) {
                    ++*static_cast<std::atomic<std::uint64_t>*>(memory.getAddress());
                }
                counts->creators += memory.isCreator();
                ++counts->opened;
                while (counts->opened.load() <= kChildren) {
                    std::this_thread::yield();  // a block lives as long as its users
                }
                return memory.error();
            }));
        }
        ASSERT_TRUE(vqtest::waitUntil([&] { return counts->opened == kChildren; }));
        EXPECT_EQ(number(CPSharedMemory(path, 8)), std::uint64_t{kChildren});
        ++counts->opened;
        for (const auto& child : children) {
            EXPECT_EQ(child->wait(), 0);
        }
        EXPECT_EQ(counts->creators.load(), 1);
    }
}

TEST_F(SharedMemory, IsNotTheMutexOfItsPath) {
    const VQRegLib::CPMutex mutex(1, 0, m_path, 1, 1);
    const CPSharedMemory memory(m_path, 8);
    EXPECT_TRUE(mutex.isOpen());
    EXPECT_NE(memory.isCreator(), 0);
    const std::string encoded = vqtest::encodedPath(m_path);
    EXPECT_THAT(m_store.sharedObjects(), ElementsAre("CPBlock." + encoded, "CPLock." + encoded));
}

TEST_F(SharedMemory, EverybodyMayUseItWhateverTheUmask) {
    const mode_t old = umask(077);
    const CPSharedMemory memory(m_path, 8);
    umask(old);
    struct stat status {};
    ASSERT_EQ(stat(m_object.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777u, 0666u);
}

TEST_F(SharedMemory, WhatSomebodyWroteIntoItsFileLeadsNowhere) {
    for (const std::size_t size : {0u, 7u, 40u, 4096u}) {
        std::ofstream(m_object, std::ios::binary) << std::string(size, 'x');
        const CPSharedMemory memory(m_path, 8);
        ASSERT_NE(memory.getAddress(), nullptr) << size;
        EXPECT_EQ(memory.isCreator(), 1);
        EXPECT_EQ(number(memory), 0u);
    }
}

TEST_F(SharedMemory, ASegmentOfSomethingElseIsNotTaken) {
    const std::string otherObject = VQRegLib::objectPath("CPBlock", m_path + "2");
    const CPSharedMemory other(m_path + "2", 8);
    const CPSharedMemory larger(m_path + "3", 16);
    std::ofstream(m_object, std::ios::binary) << vqtest::readFile(otherObject);
    const CPSharedMemory memory(m_path, 8);
    EXPECT_EQ(memory.isCreator(), 1) << "that of another path";
    number(memory) = 1;
    EXPECT_EQ(number(other), 0u);
}

TEST_F(SharedMemory, WhatIsNoFileIsRefused) {
    const std::string target = m_store.directory() + "/target";
    std::ofstream(target) << "12345678";
    fs::create_symlink(target, m_object);
    EXPECT_EQ(CPSharedMemory(m_path, 8).error(), ELOOP);
    fs::remove(m_object);
    ASSERT_EQ(mkfifo(m_object.c_str(), 0666), 0);
    EXPECT_EQ(CPSharedMemory(m_path, 8).getAddress(), nullptr);
    EXPECT_EQ(vqtest::readFile(target), "12345678");
}

TEST_F(SharedMemory, NoRoomIsAnErrorAndLeavesNothing) {
    const vqtest::TinyFileSystem full("/dev/shm", "size=16k");
    full.fill();
    const CPSharedMemory memory(m_path, 8);
    EXPECT_EQ(memory.getAddress(), nullptr);
    EXPECT_EQ(memory.error(), ENOSPC);
    EXPECT_EQ(memory.isCreator(), 0);
    EXPECT_THAT(m_store.sharedObjects(), IsEmpty());
}
