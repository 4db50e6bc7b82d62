// Calls on other threads, of which a test wants to know whether they have to wait.
#ifndef VQTEST_THREADS_H
#define VQTEST_THREADS_H

#include <unistd.h>

#include <atomic>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <utility>

#include "support/Wait.h"

namespace vqtest {

/// Whether a thread of this process waits in the kernel.
inline bool isAsleep(long id) {
    std::ifstream file("/proc/self/task/" + std::to_string(id) + "/stat");
    std::string line;
    std::getline(file, line);
    return line.find(") S ") != std::string::npos;
}

/// Whether another thread could enter a critical section.
template <typename CritSec>
bool isFree(CritSec& critSec) {
    bool entered = false;
    std::thread([&] {
        entered = critSec.tryEnter(__LINE__);
        if (entered) {
            critSec.leave(__LINE__);
        }
    }).join();
    return entered;
}

/// A call on a thread of its own. The destructor waits for its end.
class CallElsewhere {
public:
    explicit CallElsewhere(std::function<void()> call)
        : m_call(std::move(call)), m_thread([this] {
              m_id = ::gettid();
              m_call();
              m_isDone = true;
          }) {}
    ~CallElsewhere() { m_thread.join(); }
    CallElsewhere(const CallElsewhere&) = delete;
    CallElsewhere& operator=(const CallElsewhere&) = delete;

    /// Looks until the call has returned or its thread stays asleep. True when it does that.
    bool waits() const {
        constexpr int kLooks = 4;  // a thread may sleep for a moment on its way
        int asleep = 0;
        waitUntil([&] {
            asleep = m_id != 0 && isAsleep(m_id) ? asleep + 1 : 0;
            return m_isDone || asleep == kLooks;
        });
        return !m_isDone && asleep == kLooks;
    }

    bool returns() const {
        return waitUntil([this] { return m_isDone.load(); });
    }

private:
    std::function<void()> m_call;
    std::atomic<long> m_id{0};
    std::atomic<bool> m_isDone{false};
    std::thread m_thread;  // last: it uses the others
};

}  // namespace vqtest

#endif  // VQTEST_THREADS_H
