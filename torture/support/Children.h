// Processes of a check, and how long what they do takes.
#ifndef VQTORTURE_CHILDREN_H
#define VQTORTURE_CHILDREN_H

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>

#include "support/ChildLife.h"
#include "support/ForkedChild.h"
#include "support/ObjectAttacks.h"
#include "support/Torture.h"

namespace vqtorture {

using vqtest::Common;
using vqtest::ForkedChild;

class Stopwatch {
public:
    double milliseconds() const {
        return std::chrono::duration<double, std::milli>(Clock::now() - m_begin).count();
    }
    double seconds() const { return milliseconds() / 1000; }

private:
    using Clock = std::chrono::steady_clock;
    Clock::time_point m_begin = Clock::now();
};

/// A child that ends with this process, and by a signal after so many seconds. `user` may be 0, which
/// changes nothing; otherwise the child runs as that user, and ends with vqtest::kNoAttacker where that
/// is not permitted.
template <typename Body>
std::unique_ptr<ForkedChild> spawn(Body body, unsigned seconds = 60, unsigned user = 0) {
    const pid_t parent = ::getpid();
    return std::make_unique<ForkedChild>([=]() mutable -> int {
        if (user != 0 && !vqtest::becomeUser(user)) {
            return vqtest::kNoAttacker;
        }
        vqtest::endWithParent(parent, seconds);  // only now: a change of users takes it back
        try {
            return body();
        } catch (const std::exception& reason) {
            std::fprintf(stderr, "%s\n", reason.what());
            throw;
        }
    });
}

/// Ends with Violation unless the child has ended with 0.
inline void requireEnd(ForkedChild& child, const std::string& who) {
    const int status = child.wait();
    require(status == 0, who + " ended with " + std::to_string(status) +
                             (status == -SIGALRM ? ": it has waited for too long" : ""));
}

/// Where nobody else's user can be had, nothing of another user can be checked.
inline void needOtherUsers() {
    if (spawn([] { return 0; }, 10, vqtest::kNobody)->wait() != 0) {
        throw CannotRun("a process may not become another user here");
    }
}

}  // namespace vqtorture

#endif  // VQTORTURE_CHILDREN_H
