// How long it takes from a notification in one process to the handler in another.
//
//   bench_notify [ROUNDS]        (at least 200, which is the default)
#include <VQRegLib.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;  // the same for both processes
using VQRegLib::CRegLib;

constexpr int kFewestRounds = 200;
constexpr unsigned kPatienceSeconds = 120;

// A directory with a store, removed at the end.
class BenchStore {
public:
    BenchStore() {
        std::string pattern = std::filesystem::temp_directory_path() / "vqreg-bench-XXXXXX";
        if (!mkdtemp(pattern.data())) {
            throw std::runtime_error("no temporary directory");
        }
        m_directory = pattern;
    }
    ~BenchStore() {
        std::error_code error;
        std::filesystem::remove_all(m_directory, error);
        std::string encoded;
        for (const char c : path()) {
            encoded += c == '/' ? std::string("%2F") : std::string(1, c);
        }
        for (const char* kind : {"CPLock.", "CPBlock."}) {
            std::filesystem::remove(std::string("/dev/shm/") + kind + encoded, error);
        }
    }
    BenchStore(const BenchStore&) = delete;
    BenchStore& operator=(const BenchStore&) = delete;

    std::string path() const { return m_directory + "/bench.cfg"; }

    // The handlers are called when the second of the modification time has moved.
    void setSecond(std::int64_t second) const {
        const timespec times[2] = {{second, 0}, {second, 0}};
        if (utimensat(AT_FDCWD, path().c_str(), times, 0) != 0) {
            throw std::runtime_error("cannot set the file's time");
        }
    }

private:
    std::string m_directory;
};

// Writes the time of each call to a pipe.
class ReportingHandler : public VQRegLib::CRegistryChangeHandler {
public:
    explicit ReportingHandler(int pipe) : m_pipe(pipe) {}
    void OnRegistryChange() override {
        const std::int64_t now = Clock::now().time_since_epoch().count();
        (void)!write(m_pipe, &now, sizeof now);
    }

private:
    int m_pipe;
};

// Until the other end of `stop` is closed.
void watch(const std::string& path, int pipe, int stop) {
    alarm(kPatienceSeconds);
    CRegLib session(path.c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
    ReportingHandler handler(pipe);
    session.SetRegistryChangeHandler(&handler);
    const std::int64_t ready = 0;
    (void)!write(pipe, &ready, sizeof ready);
    char byte = 0;
    (void)!read(stop, &byte, sizeof byte);
}

std::int64_t readTime(int pipe) {
    std::int64_t time = 0;
    if (read(pipe, &time, sizeof time) != static_cast<ssize_t>(sizeof time)) {
        throw std::runtime_error("the watching process has gone");
    }
    return time;
}

// In microseconds, sorted.
std::vector<double> measure(const BenchStore& store, int pipe, int rounds) {
    readTime(pipe);
    CRegLib session(store.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
    usleep(200'000);  // the watcher has its first look at the file
    std::vector<double> times;
    for (int round = 0; round <= rounds; ++round) {
        store.setSecond(1000 + round);
        const std::int64_t begin = Clock::now().time_since_epoch().count();
        session.SendRegistryChangeNotification();
        const std::int64_t end = readTime(pipe);
        if (round > 0) {  // the first one warms up
            times.push_back(static_cast<double>(end - begin) / 1000);
        }
    }
    std::sort(times.begin(), times.end());
    return times;
}

double quantile(const std::vector<double>& sorted, double part) {
    const auto index = static_cast<std::size_t>(part * static_cast<double>(sorted.size()));
    return sorted[std::min(index, sorted.size() - 1)];
}

void run(int rounds) {
    const BenchStore store;
    int times[2];
    int stop[2];
    if (pipe2(times, O_CLOEXEC) != 0 || pipe2(stop, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    const pid_t watcher = fork();
    if (watcher == 0) {
        close(stop[1]);
        watch(store.path(), times[1], stop[0]);
        std::exit(0);
    }
    close(times[1]);
    const std::vector<double> sorted = measure(store, times[0], rounds);
    close(stop[1]);
    waitpid(watcher, nullptr, 0);
    std::printf("notification to handler, %d rounds: median %.1f us, 99th percentile %.1f us\n",
                rounds, quantile(sorted, 0.5), quantile(sorted, 0.99));
}

}  // namespace

int main(int count, char** arguments) {
    alarm(kPatienceSeconds);
    try {
        run(std::max(kFewestRounds, count > 1 ? std::atoi(arguments[1]) : 0));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench_notify: %s\n", error.what());
        return 1;
    }
    return 0;
}
