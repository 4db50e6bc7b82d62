/// How long it takes from a call in one process to a handler in another.
///
///   PROGRAM DIRECTORY ROUNDS     prints microseconds, the median
#ifndef VQREG_BENCH_NOTIFICATION_H
#define VQREG_BENCH_NOTIFICATION_H

#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "support/System.h"

namespace bench {

constexpr unsigned kPatienceSeconds = 60;

// What the two processes do. `watch` calls `report` from its handler and returns when `wait` does;
// `sender` is called once the watcher is ready and returns what sends.
struct Notification {
    using Action = std::function<void()>;
    std::function<void(const std::string& file, const Action& report, const Action& wait)> watch;
    std::function<Action(const std::string& file)> sender;
};

class NotificationRun {
public:
    NotificationRun(const Notification& what, const std::string& directory)
        : m_what(what), m_file(directory + "/notify.cfg") {
        writeFile(m_file, std::string("[Velquist]\n"));
        require(pipe2(m_times, O_CLOEXEC) == 0 && pipe2(m_stop, O_CLOEXEC) == 0, "no pipe");
        m_watcher = fork();
        require(m_watcher >= 0, "no process");
        if (m_watcher == 0) {
            close(m_stop[1]);
            alarm(kPatienceSeconds);
            watch();
            std::exit(0);
        }
        close(m_times[1]);
    }
    ~NotificationRun() {
        close(m_stop[1]);
        waitpid(m_watcher, nullptr, 0);
    }
    NotificationRun(const NotificationRun&) = delete;
    NotificationRun& operator=(const NotificationRun&) = delete;

    double medianOf(int rounds) {
        readTime();
        const Notification::Action send = m_what.sender(m_file);
        usleep(200'000);  // the watcher has its first look at the file
        std::vector<double> times;
        for (int round = 0; round <= rounds; ++round) {
            // Handlers are called when the second of the modification time has moved.
            const timespec second = {1000 + round, 0};
            const timespec both[2] = {second, second};
            require(utimensat(AT_FDCWD, m_file.c_str(), both, 0) == 0, "no time can be set");
            const std::int64_t begin = now();
            send();
            const std::int64_t end = readTime();
            if (round > 0) {  // the first one warms up
                times.push_back(static_cast<double>(end - begin) / 1000);
            }
        }
        std::sort(times.begin(), times.end());
        return times[times.size() / 2];
    }

private:
    void watch() {
        const auto report = [this] {
            const std::int64_t time = now();
            (void)!write(m_times[1], &time, sizeof time);
        };
        const auto wait = [this, &report] {
            report();  // ready
            char byte = 0;
            (void)!read(m_stop[0], &byte, sizeof byte);
        };
        m_what.watch(m_file, report, wait);
    }

    std::int64_t readTime() {
        std::int64_t time = 0;
        require(read(m_times[0], &time, sizeof time) == sizeof time, "the watcher has gone");
        return time;
    }

    const Notification& m_what;
    std::string m_file;
    int m_times[2] = {};
    int m_stop[2] = {};
    pid_t m_watcher = -1;
};

inline int notify(int count, char** arguments, const Notification& what) {
    alarm(kPatienceSeconds);
    try {
        require(count == 3, "a directory and a number of rounds are needed");
        NotificationRun run(what, arguments[1]);
        std::printf("%.3f\n", run.medianOf(std::max(1, std::atoi(arguments[2]))));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", arguments[0], error.what());
        return 1;
    }
    return 0;
}

}  // namespace bench

#endif  // VQREG_BENCH_NOTIFICATION_H
