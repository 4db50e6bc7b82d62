// Lets one thread end another one's wait.
#ifndef PORTABLE_TERMINATEWAIT_H
#define PORTABLE_TERMINATEWAIT_H

#include <atomic>

namespace VQRegLib {

class CTerminateWait {
public:
    void terminate() { m_terminated.store(true); }
    bool isTerminated() const { return m_terminated.load(); }

private:
    std::atomic<bool> m_terminated{false};
};

}  // namespace VQRegLib

#endif  // PORTABLE_TERMINATEWAIT_H
