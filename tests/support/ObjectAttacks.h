// What another user does to the objects that processes share.
#ifndef VQTEST_OBJECT_ATTACKS_H
#define VQTEST_OBJECT_ATTACKS_H

#include <fcntl.h>
#include <grp.h>
#include <sys/types.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <random>
#include <string>

#include "support/ChildLife.h"
#include "support/ForkedChild.h"
#include "support/OtherUser.h"

namespace vqtest {

constexpr int kNoAttacker = 99;  // exit status of one who cannot become another user

inline bool becomeNobody() {
    return ::setgroups(0, nullptr) == 0 && ::setresgid(kNobody, kNobody, kNobody) == 0 &&
           ::setresuid(kNobody, kNobody, kNobody) == 0;
}

// A child of the test that runs as another user.
template <typename Body>
std::unique_ptr<ForkedChild> asNobody(Body body) {
    const pid_t parent = ::getpid();
    return std::make_unique<ForkedChild>([=]() -> int {
        if (!becomeNobody()) {
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

}  // namespace vqtest

#endif  // VQTEST_OBJECT_ATTACKS_H
