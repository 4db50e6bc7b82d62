// A daemon that follows its settings: it does its work with what the store says and takes over a
// change when it is announced, without a restart. Settings that are missing have defaults. Ends
// with SIGTERM or SIGINT.
//
//   follow STORE|- KEY
//
// KEY holds "Interval" (milliseconds, a dword) and "Message" (a string).
#include <VQRegLib.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <utility>

#include "examples/Values.h"

namespace {

using VQRegLib::CRegKey;
using VQRegLib::CRegLib;

struct Settings {
    std::uint32_t interval = 60000;
    std::string message = "at work";

    bool operator==(const Settings&) const = default;
};

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

// Called on a thread of the library. It only wakes the main loop, so that settings are read and
// used in one thread and need no lock.
class Waker : public VQRegLib::CRegistryChangeHandler {
public:
    Waker(CRegLib& session, const File& event) : m_session(session), m_event(event) {
        m_session.SetRegistryChangeHandler(this);
    }
    ~Waker() override { m_session.ClrRegistryChangeHandler(this); }
    Waker(const Waker&) = delete;
    Waker& operator=(const Waker&) = delete;

    void OnRegistryChange() override { eventfd_write(m_event.fd(), 1); }

private:
    CRegLib& m_session;
    const File& m_event;
};

class Daemon {
public:
    Daemon(const char* store, std::string path, const sigset_t& ending)
        : m_path(std::move(path)),
          m_ending(signalfd(-1, &ending, SFD_CLOEXEC)),
          m_event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
          m_session(store, nullptr, CRegLib::eLocationDefault, nullptr),
          m_waker(m_session, m_event) {}

    // The handler is registered by now, before the first look at the settings.
    bool run() {
        if (m_session.RootKey() == nullptr) {
            return false;
        }
        follow();
        for (;;) {
            const auto begun = Clock::now();
            for (auto left = interval(); left.count() > 0; left = interval() - since(begun)) {
                if (isEndedWithin(left)) {
                    std::printf("end\n");
                    return true;
                }
                // At its own pace it looks as well. A query costs next to nothing, and the library
                // tells changes by the file's time, in whole seconds, since its own first look: one
                // that comes in the same second, or before that look, is not announced.
                follow();
            }
            work();
        }
    }

private:
    using Clock = std::chrono::steady_clock;
    using Milliseconds = std::chrono::milliseconds;

    Milliseconds interval() const { return Milliseconds(m_settings->interval); }

    static Milliseconds since(Clock::time_point begun) {
        return std::chrono::duration_cast<Milliseconds>(Clock::now() - begun);
    }

    // Waits for the end, for an announcement, or until it is time to work.
    bool isEndedWithin(Milliseconds left) {
        pollfd sources[] = {{m_ending.fd(), POLLIN, 0}, {m_event.fd(), POLLIN, 0}};
        poll(sources, 2, static_cast<int>(left.count()));
        eventfd_t count = 0;
        eventfd_read(m_event.fd(), &count);
        return sources[0].revents != 0;
    }

    // Nothing while the store cannot be read. A key that does not exist yet is no failure: all
    // settings have their defaults then, and so has a value that is missing or of another type.
    std::optional<Settings> read() {
        Settings settings;
        CRegKey key;
        const int result = m_session.VQRegCreateKey(nullptr, m_path.c_str(), key, 0);
        if (result < 0) {
            return result == VQRegLib::REGLIB_E_KEY_NOT_FOUND ? std::optional(settings)
                                                              : std::nullopt;
        }
        constexpr std::uint32_t kLongest = 24 * 60 * 60 * 1000;
        settings.interval =
            std::clamp(example::number(m_session, key, "Interval", settings.interval)
                           .value_or(settings.interval),
                       1u, kLongest);
        settings.message =
            example::text(m_session, key, "Message", settings.message).value_or(settings.message);
        return settings;
    }

    void follow() {
        const std::optional<Settings> settings = read();
        if (!settings) {
            std::fprintf(stderr, "follow: the store cannot be read; the settings stay\n");
            m_settings = m_settings ? m_settings : Settings();
        } else if (settings != m_settings) {
            m_settings = settings;
            show(*settings);
        }
    }

    static void show(const Settings& settings) {
        std::printf("settings: interval %u ms, message \"%s\"\n", settings.interval,
                    settings.message.c_str());
    }

    void work() { std::printf("%s\n", m_settings->message.c_str()); }

    const std::string m_path;
    const File m_ending;
    const File m_event;
    CRegLib m_session;
    Waker m_waker;
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

    Daemon daemon(example::storePath(argv[1]), argv[2], ending);
    if (!daemon.run()) {
        std::fprintf(stderr, "follow: cannot open the store\n");
        return 1;
    }
    return 0;
}
