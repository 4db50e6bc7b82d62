// The floor of a notification: a semaphore that both processes know, a thread that waits for it and
// wakes a second one, which looks at the file and calls the handler.
#include <semaphore.h>
#include <sys/stat.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

#include "support/Notification.h"

namespace {

using bench::Notification;

class Semaphore {
public:
    explicit Semaphore(const std::string& file) : m_shared(file + ".semaphore") {}

    void initialise() { bench::require(sem_init(&*m_shared, 1, 0) == 0, "no semaphore"); }
    void post() { sem_post(&*m_shared); }
    void wait() {
        while (sem_wait(&*m_shared) != 0) {
        }
    }

private:
    bench::Shared<sem_t> m_shared;
};

class Watcher {
public:
    Watcher(std::string file, const Notification::Action& report)
        : m_file(std::move(file)), m_report(report), m_semaphore(m_file), m_seen(secondOf(m_file)) {
        m_semaphore.initialise();
        m_notified = std::thread([this] { passOn(); });
        m_looking = std::thread([this] { look(); });
    }
    ~Watcher() {
        {
            const std::lock_guard guard(m_lock);
            m_ends = true;
        }
        m_semaphore.post();
        m_notified.join();
        m_looking.join();
    }
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;

private:
    static time_t secondOf(const std::string& file) {
        struct stat status = {};
        bench::require(stat(file.c_str(), &status) == 0, "no file");
        return status.st_mtime;
    }

    void passOn() {
        for (bool ends = false; !ends;) {
            m_semaphore.wait();
            const std::lock_guard guard(m_lock);
            m_woken = true;
            ends = m_ends;
            m_wake.notify_one();
        }
    }

    void look() {
        std::unique_lock guard(m_lock);
        while (!m_ends) {
            m_wake.wait(guard, [this] { return m_woken; });
            m_woken = false;
            const time_t second = secondOf(m_file);
            if (second != m_seen) {
                m_seen = second;
                m_report();
            }
        }
    }

    std::string m_file;
    const Notification::Action& m_report;
    Semaphore m_semaphore;
    time_t m_seen;
    std::mutex m_lock;
    std::condition_variable m_wake;
    bool m_woken = false;
    bool m_ends = false;
    std::thread m_notified;
    std::thread m_looking;
};

void watch(const std::string& file, const Notification::Action& report,
           const Notification::Action& wait) {
    const Watcher watcher(file, report);
    wait();
}

Notification::Action sender(const std::string& file) {
    const auto semaphore = std::make_shared<Semaphore>(file);
    return [semaphore] { semaphore->post(); };
}

}  // namespace

int main(int count, char** arguments) {
    return bench::notify(count, arguments, {watch, sender});
}
