// Looks after a call that may have to wait for the lock of a store.
#ifndef TOOLS_VQREG_STORE_LOCKWATCH_H
#define TOOLS_VQREG_STORE_LOCKWATCH_H

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace vqreg {

// The library waits for a lock without limit. While an object of this class lives, a thread watches
// the time: after two seconds it names the process that holds the lock of one of the files, and
// when the time is up it ends the process. Nothing is half done then: a change begins with the lock.
class LockWatch {
public:
    LockWatch(std::vector<std::string> files, double timeoutSeconds);
    ~LockWatch();
    LockWatch(const LockWatch&) = delete;
    LockWatch& operator=(const LockWatch&) = delete;

private:
    void run();
    bool waitFor(double seconds);  // true when the call is over
    void warn() const;
    void endProcessIfWaiting() const;

    const std::vector<std::string> m_files;
    const double m_timeoutSeconds;
    std::mutex m_mutex;
    std::condition_variable m_over;
    bool m_isOver = false;
    std::thread m_thread;
};

}  // namespace vqreg

#endif  // TOOLS_VQREG_STORE_LOCKWATCH_H
