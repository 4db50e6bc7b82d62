// How long a child of the test process may live.
#ifndef VQTEST_CHILD_LIFE_H
#define VQTEST_CHILD_LIFE_H

#include <sys/prctl.h>
#include <sys/types.h>
#include <unistd.h>

#include <csignal>

namespace vqtest {

constexpr unsigned kChildSeconds = 60;

/// In a child: it ends with the thread that forked it, also when that is killed.
inline void followParent(pid_t parent) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const pid_t now = ::getppid();
    const bool isOutside = now == 0;  // of the child's namespace
    if (now != parent && !isOutside) {
        ::_exit(1);
    }
}

/// The same, and after so many seconds at the latest.
inline void endWithParent(pid_t parent, unsigned seconds = kChildSeconds) {
    followParent(parent);
    ::signal(SIGALRM, SIG_DFL);
    ::alarm(seconds);
}

}  // namespace vqtest

#endif  // VQTEST_CHILD_LIFE_H
