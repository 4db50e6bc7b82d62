/// @file
/// What has changed in a store, whoever has changed it. A part of VQRegStore.h.
#ifndef VQREGSTORE_WATCH_H
#define VQREGSTORE_WATCH_H

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <functional>
#include <new>
#include <thread>

#include "VQRegStore/Store.h"

namespace vqreg {

/// A change of one value, or of one key.
struct Change {
    std::string path;             ///< of the key, below the store's root key
    std::string name;             ///< of the value; empty where it is the key that has come or gone
    bool is_key = false;          ///< whether the key itself has come or gone
    bool is_present = false;      ///< whether the value, or the key, is there now
    std::optional<Value> before;  ///< the value as it was; nothing where there was none
    std::optional<Value> after;   ///< the value as it is; nothing where there is none
};

/// The changes of a key and of everything below it, for an event loop: wait until the descriptor is
/// readable, then take what `next` gives until it gives nothing. May be moved; belongs to one thread at a
/// time, and not to the child of a fork. It keeps its store open.
///
/// It compares the file with what it last found there, whoever has changed it and whether or not he told
/// anybody. Several changes of one value between two looks count as one, and as none when it is what it
/// was. A file that is missing for a while is no change.
class Changes {
public:
    /// Begins to watch. What changes after it has returned is given out.
    /// @param path  of the key; need not exist
    /// @throws Error  `errc::not_storable`, `errc::bad_format`, `errc::file_open`; `errc::fail` also when
    ///                the system has no descriptor or no watch of files left
    Changes(const Store& store, Name path) {
        std::error_code error;
        open(store, path, error);
        if (error) {
            detail::failAt(error.value(), store.m_core.get(),
                           path.is_whole() ? detail::pathOf(path) : std::string(),
                           static_cast<const char*>(nullptr), nullptr);
        }
    }
    /// The same without an exception. Where it fails the object has no descriptor, and `next` fails with
    /// `errc::fail`.
    Changes(const Store& store, Name path, std::error_code& error) { open(store, path, error); }

    /// For poll, epoll or an event loop: readable when there may be a change. Belongs to the object: do not
    /// read from it and do not close it.
    int descriptor() const noexcept { return ::vqreg_watch_fd(m_watch.get()); }

    /// The next change, in the order of paths and names; nothing when there is none. Never waits.
    /// @throws Error  `errc::bad_format` while the file is malformed, `errc::file_open` while it cannot be
    ///                read: ask again when the descriptor is readable. While the file's directory is missing
    ///                it is not: ask again later. Nor does it become so when a directory above that one is
    ///                replaced, which the next call finds: call it every few seconds. `errc::fail` while
    ///                there is no memory or no descriptor: the descriptor stays readable, so wait a moment
    std::optional<Change> next() {
        std::error_code error;
        std::optional<Change> change = next(error);
        if (error) {
            detail::failAt(error.value(), m_core.get(), {}, "", nullptr);
        }
        return change;
    }
    /// The same without an exception but `std::bad_alloc`, after which the change is given out again.
    std::optional<Change> next(std::error_code& error) {
        const int result = m_watch && m_found ? 1 : ::vqreg_watch_next(m_watch.get(), &m_found);
        error = result < 0 ? detail::codeOf(result) : std::error_code();
        if (result != 1) {
            return std::nullopt;
        }
        std::optional<Change> change(changeOf(*m_found));
        m_found = nullptr;
        return change;
    }

private:
    struct Close {
        void operator()(vqreg_watch* watch) const { ::vqreg_watch_close(watch); }
    };

    void open(const Store& store, Name path, std::error_code& error) {
        int result = path.is_whole() ? VQREG_E_NOT_INITIALIZED : VQREG_E_NOT_STORABLE;
        if (store && path.is_whole()) {
            m_core = store.m_core;
            m_watch.reset(::vqreg_watch_open(m_core->store(), path.c_str(), &result));
        }
        error = result < 0 ? detail::codeOf(result) : std::error_code();
    }

    static std::optional<Value> valueOf(const char* name, const vqreg_data& data) {
        return data.type == VQREG_NONE
                   ? std::nullopt
                   : std::optional<Value>(std::in_place, name, static_cast<Type>(data.type),
                                          data.data, data.size);
    }

    static Change changeOf(const vqreg_change& found) {
        Change change;
        change.path = found.path;
        change.is_key = found.name == nullptr;
        change.is_present = found.is_present != 0;
        if (found.name) {
            change.name = found.name;
            change.before = valueOf(found.name, found.before);
            change.after = valueOf(found.name, found.after);
        }
        return change;
    }

    detail::SharedCore m_core;
    std::unique_ptr<vqreg_watch, Close> m_watch;
    const vqreg_change* m_found = nullptr;  // which there was no memory to give out
};

/// Calls a function for each change of a key and of everything below it, on a thread of its own, one after
/// the other. See `Changes` for what is a change.
///
///     vqreg::Watch watch(store, "Network", [](const vqreg::Change& change) {
///         std::cout << change.path << ' ' << change.name << '\n';
///     });
///
/// The function may use the store in every way. The thread blocks all signals, so those of the process go to
/// its other threads. The first call may come before the constructor has returned. An exception that leaves
/// the function ends the program, as one that leaves any thread does. The object may be moved. In the child of
/// a fork it tells nothing, and may be destroyed. After trouble the file is looked at every second until it can
/// be read again, otherwise every five seconds without being told: that a directory above the file's own was
/// replaced is told to nobody.
///
/// When the destructor has returned, the function is not running and will not be called. In the function
/// itself the object may be destroyed, too: the destructor does not wait then, and the call goes on to its
/// end as the last one.
class Watch {
public:
    /// Is given each change.
    using Function = std::function<void(const Change&)>;
    /// Is told, on the same thread, that the file cannot be read or is malformed, once until it is read
    /// again, with which a cleared code comes. Changes that were made meanwhile follow.
    using Trouble = std::function<void(std::error_code)>;

    /// Begins to watch. Every change after it has returned is told.
    /// @param path  of the key; need not exist
    /// @throws Error  as `Changes`; `errc::fail` also without a function
    /// @throws std::system_error  when there can be no thread
    Watch(const Store& store, Name path, Function function, Trouble trouble = nullptr)
        : m_state(std::make_shared<State>(Changes(store, path), std::move(function),
                                          std::move(trouble))) {
        m_state->start();
    }

    /// The same without an exception but `std::bad_alloc`. Where it fails nothing is watched.
    Watch(const Store& store, Name path, Function function, Trouble trouble,
          std::error_code& error) {
        Changes changes(store, path, error);
        if (!error) {
            try {
                m_state = std::make_shared<State>(std::move(changes), std::move(function),
                                                  std::move(trouble));
                m_state->start();
            } catch (const std::system_error& failure) {
                m_state.reset();
                error = failure.code();
            }
        }
    }

    ~Watch() { stop(); }
    /// Leaves the other one without anything to watch.
    Watch(Watch&&) noexcept = default;
    /// Ends what this one watched, as its destructor would.
    Watch& operator=(Watch&& other) noexcept {
        if (this != &other) {
            stop();
            m_state = std::move(other.m_state);
        }
        return *this;
    }

private:
    // A descriptor that wakes the thread for its end.
    class Bell {
    public:
        Bell() : m_descriptor(::eventfd(0, EFD_CLOEXEC)) {
            if (m_descriptor < 0) {
                throw Error(errc::fail, error_message(errc::fail), {}, {});
            }
        }
        ~Bell() { ::close(m_descriptor); }
        Bell(const Bell&) = delete;
        Bell& operator=(const Bell&) = delete;

        int descriptor() const noexcept { return m_descriptor; }
        void ring() const noexcept { (void)::eventfd_write(m_descriptor, 1); }

    private:
        int m_descriptor;
    };

    // The thread shares it with the object, which may go first. In the child of a fork there is no thread,
    // whose share then keeps it for ever.
    struct State : std::enable_shared_from_this<State> {
        State(Changes of, Function call, Trouble tell)
            : changes(std::move(of)), function(std::move(call)), trouble(std::move(tell)) {
            if (!function) {
                throw Error(errc::fail, error_message(errc::fail), {}, {});
            }
        }

        void start() {
            sigset_t all;
            sigset_t before;
            sigfillset(&all);
            ::pthread_sigmask(SIG_SETMASK, &all, &before);
            try {
                thread = std::thread([self = shared_from_this()]() noexcept { self->run(); });
            } catch (...) {
                ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
                throw;
            }
            ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
        }

        void stop() noexcept {
            if (::getpid() != process || !thread.joinable()) {
                return;
            }
            isOver = true;
            bell.ring();
            if (thread.get_id() == std::this_thread::get_id()) {
                thread.detach();
            } else {
                thread.join();
            }
        }

        void run() {
            std::error_code known;
            while (!isOver) {
                handOut(known);
                pollfd sources[] = {{bell.descriptor(), POLLIN, 0},
                                    {changes.descriptor(), POLLIN, 0}};
                // Nothing tells that a missing directory is back, nor that one above it was replaced, and the
                // descriptor stays readable without memory.
                const int patience = known ? 1000 : 5000;
                const nfds_t count = known == errc::fail ? 1 : 2;
                while (!isOver && ::poll(sources, count, patience) < 0 && errno == EINTR) {
                }
            }
        }

        void handOut(std::error_code& known) {
            while (!isOver) {
                std::error_code error;
                const std::optional<Change> change = next(error);
                if (error != known && trouble) {
                    trouble(error);
                }
                known = error;
                if (!change || isOver) {
                    return;
                }
                function(*change);
            }
        }

        // No exception is to end the program but the function's.
        std::optional<Change> next(std::error_code& error) {
            try {
                return changes.next(error);
            } catch (const std::bad_alloc&) {
                error = errc::fail;
                return std::nullopt;
            }
        }

        Changes changes;
        const Function function;
        const Trouble trouble;
        const Bell bell;
        const pid_t process = ::getpid();
        std::atomic<bool> isOver{false};
        std::thread thread;
    };

    void stop() noexcept {
        if (m_state) {
            m_state->stop();
        }
    }

    std::shared_ptr<State> m_state;
};

}  // namespace vqreg

#endif  // VQREGSTORE_WATCH_H
