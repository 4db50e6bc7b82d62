// What another user does to the objects that processes share.
#ifndef VQTEST_OBJECT_ATTACKS_H
#define VQTEST_OBJECT_ATTACKS_H

#include <fcntl.h>
#include <grp.h>
#include <sys/shm.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <string>

#include "support/ChildLife.h"
#include "support/ForkedChild.h"
#include "support/OtherUser.h"

namespace vqtest {

constexpr int kNoAttacker = 99;  // exit status of one who cannot become another user

inline bool becomeUser(unsigned user) {
    return ::setgroups(0, nullptr) == 0 && ::setresgid(user, user, user) == 0 &&
           ::setresuid(user, user, user) == 0;
}

// A child of the test that runs as another user.
template <typename Body>
std::unique_ptr<ForkedChild> asNobody(Body body) {
    const pid_t parent = ::getpid();
    return std::make_unique<ForkedChild>([=]() -> int {
        if (!becomeUser(kNobody)) {
            return kNoAttacker;
        }
        endWithParent(parent);  // only now: a change of users takes it back
        return body();
    });
}

inline int openObject(const std::string& path) {
    return ::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
}

// What is done to one object, once; false when the system refuses it.
using Attack = std::function<bool(const std::string& path)>;

inline bool fillWithGarbage(const std::string& path) {
    static std::minstd_rand random(1);
    unsigned char garbage[4096];
    for (unsigned char& byte : garbage) {
        byte = static_cast<unsigned char>(random());
    }
    const int fd = openObject(path);
    const bool isWritten = ::pwrite(fd, garbage, sizeof garbage, 0) == sizeof garbage;
    ::close(fd);
    return isWritten;
}

constexpr off_t kGiant = off_t{1} << 30;

inline bool cut(const std::string& path) {
    return ::truncate(path.c_str(), 0) == 0;
}

inline bool makeGiant(const std::string& path) {
    return ::truncate(path.c_str(), kGiant) == 0;
}

inline bool makeGiantOfNothing(const std::string& path) {
    return cut(path) && makeGiant(path);
}

// The memory that the block's object names, as its users find it: behind a magic and a namespace of
// eight bytes each stands the segment's id, and the stamp lies behind 64 bytes of the segment.
inline std::atomic<std::uint64_t>* attachStamp(const std::string& path) {
    std::int64_t record[3] = {};
    const int fd = openObject(path);
    const bool isRead = ::pread(fd, record, sizeof record, 0) == sizeof record;
    ::close(fd);
    void* const segment = isRead ? ::shmat(static_cast<int>(record[2]), nullptr, 0) : nullptr;
    if (!segment || segment == reinterpret_cast<void*>(-1)) {
        return nullptr;
    }
    return reinterpret_cast<std::atomic<std::uint64_t>*>(static_cast<char*>(segment) + 64);
}

inline bool isBlock(const std::string& path) {
    return path.find("CPBlock.") != std::string::npos;
}

// Even and odd ones, and the ends of the range.
inline bool scribbleStamps(const std::string& path) {
    static std::mt19937_64 random(1);
    if (!isBlock(path)) {
        return true;
    }
    std::atomic<std::uint64_t>* const stamp = attachStamp(path);
    if (!stamp) {
        return false;
    }
    for (int i = 0; i < 200; ++i) {
        *stamp = i % 50 == 0 ? std::uint64_t{0} - static_cast<std::uint64_t>(i / 50) : random();
    }
    ::shmdt(reinterpret_cast<char*>(stamp) - 64);
    return true;
}

}  // namespace vqtest

#endif  // VQTEST_OBJECT_ATTACKS_H
