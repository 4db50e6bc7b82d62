// A daemon that follows its settings: it does its work with what the store says and takes over a
// change the moment it is made, without a restart. Settings that are missing have defaults. Ends
// with SIGTERM or SIGINT.
//
//   follow STORE|- KEY
//
// KEY holds "Interval" (milliseconds, a dword) and "Message" (a string).
#include <VQRegStore.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <utility>

namespace {

struct Settings {
    unsigned interval = 60000;
    std::string message = "at work";

    bool operator==(const Settings&) const = default;
};

// A value of another type counts as missing: the daemon goes on with what it can use.
template <typename T>
T setting(const vqreg::Key& key, const char* name, const T& fallback) {
    try {
        return key.get_or(name, fallback);
    } catch (const vqreg::Error& error) {
        if (error.code() == vqreg::errc::bad_type) {
            return fallback;
        }
        throw;
    }
}

class File {
public:
    explicit File(int fd) : m_fd(fd) {}
    ~File() { close(m_fd); }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    int fd() const { return m_fd; }

private:
    int m_fd;
};

class Daemon {
public:
    // It watches before the first look at the settings: nothing happens unseen in between.
    Daemon(const char* store, std::string path, const sigset_t& ending)
        : m_path(std::move(path)),
          m_ending(signalfd(-1, &ending, SFD_CLOEXEC)),
          m_store(store),
          m_changes(m_store, m_path) {}

    void run() {
        follow();
        for (;;) {
            const auto begun = Clock::now();
            for (auto left = interval(); left.count() > 0; left = interval() - since(begun)) {
                if (isEndedWithin(left)) {
                    std::printf("end\n");
                    return;
                }
            }
            std::printf("%s\n", m_settings->message.c_str());
        }
    }

private:
    using Clock = std::chrono::steady_clock;
    using Milliseconds = std::chrono::milliseconds;

    Milliseconds interval() const { return Milliseconds(m_settings->interval); }

    static Milliseconds since(Clock::time_point begun) {
        return std::chrono::duration_cast<Milliseconds>(Clock::now() - begun);
    }

    // Waits for the end or until it is time to work, and takes changes over meanwhile.
    bool isEndedWithin(Milliseconds left) {
        pollfd sources[] = {{m_ending.fd(), POLLIN, 0}, {m_changes.descriptor(), POLLIN, 0}};
        constexpr Milliseconds kLongest(5000);
        poll(sources, 2, static_cast<int>(std::min(left, kLongest).count()));
        // Without being told, too: a missing directory that is back is news to nobody.
        if (sources[1].revents != 0 || left > kLongest) {
            std::error_code error;  // that the file is malformed is told by the next look at it
            while (m_changes.next(error)) {
            }
            follow();
        }
        return sources[0].revents != 0;
    }

    // A key that does not exist yet is no failure: all settings have their defaults then.
    Settings read() const {
        Settings settings;
        if (const std::optional<vqreg::Key> key = m_store.find(m_path)) {
            constexpr unsigned kLongest = 24 * 60 * 60 * 1000;
            settings.interval =
                std::clamp(setting(*key, "Interval", settings.interval), 1u, kLongest);
            settings.message = setting(*key, "Message", settings.message);
        }
        return settings;
    }

    void follow() {
        try {
            const Settings settings = read();
            if (settings != m_settings) {
                m_settings = settings;
                std::printf("settings: interval %u ms, message \"%s\"\n", settings.interval,
                            settings.message.c_str());
            }
        } catch (const vqreg::Error& error) {
            std::fprintf(stderr, "follow: the settings stay: %s\n", error.what());
            m_settings = m_settings ? m_settings : Settings();
        }
    }

    const std::string m_path;
    const File m_ending;
    const vqreg::Store m_store;
    vqreg::Changes m_changes;
    std::optional<Settings> m_settings;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: follow STORE|- KEY\n");
        return 2;
    }
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    // Before there are threads, so that all of them leave these signals to the main loop.
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGTERM);
    sigaddset(&ending, SIGINT);
    sigprocmask(SIG_BLOCK, &ending, nullptr);

    try {
        Daemon(std::strcmp(argv[1], "-") == 0 ? nullptr : argv[1], argv[2], ending).run();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "follow: %s\n", error.what());
        return 1;
    }
    return 0;
}
