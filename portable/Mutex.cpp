// Two locks make the mutex: one of the process, for its threads, and within it the kernel's on the
// file, for the processes. flock is taken, not a POSIX record lock, because that goes with any
// closing of the file by the process. A lock of flock belongs to the open file, which a child of fork
// shares: the child closes its descriptor, and the parent's unlocking works all the same.
//
// Why not a mutex in shared memory. A robust one is a hundred times cheaper, but the C library keeps its
// list of them in the mutexes themselves, and these would lie in memory that every user may write: who
// writes there makes the next unlock of somebody else's process write where he likes. A lock of the
// kernel can be held by a stranger, and that is all he can do with it.
//
// Who holds it. Depth and owner are words of this process. The owner is a thread's number that is never
// given twice, because the C library gives the next thread the value of pthread_self() that the dead one
// had. All objects of a process on one path share one state, so that a thread which holds the lock through
// one store may take it through another; how often it has taken it through which is counted in the
// objects, and each holding has a number, so that counts left behind by a thread that ended are not
// mistaken for counts of the present one.
//
// What ends a holding. release(); the end of the object; the end of the thread, by the destructor of its
// data under a key of POSIX threads (the C library's own way for objects of threads ends the process when
// there is no memory to register one); the end of the process, by the kernel: at exit() the main thread's
// goes with that, after the destructors of static objects. A fork ends it in the child: the state gets another
// inner mutex, because a thread that does not exist there may be inside the old one, and the file is
// closed, which takes nothing from the parent as long as the child does not unlock it.
//
// A program may close descriptors that are not its own, and give their numbers to other files. So
// device and inode are compared before a descriptor is locked, written or closed, and what is another's
// is left alone. An administrator may remove the object: whoever takes the lock next finds that the name
// means another file, and takes the lock of that one. Who holds the lock of the removed one at that
// moment keeps nobody out any more; it asks isStillHeld() before it does what the lock is for.
#include "portable/Mutex.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <forward_list>
#include <map>
#include <memory>
#include <mutex>
#include <new>

#include "portable/FileLocks.h"
#include "portable/ObjectName.h"
#include "portable/PlainMutex.h"
#include "portable/Portable.h"
#include "portable/SharedFile.h"
#include "portable/ThreadNumber.h"

namespace VQRegLib {

namespace {

constexpr unsigned long kLookMilliseconds = 5;
constexpr int kAttempts = 100;  // at an object that is replaced again and again

std::uint64_t monotonicMilliseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000 +
           static_cast<std::uint64_t>(now.tv_nsec) / 1'000'000;
}

// When and why a wait is to be given up.
class CPatience {
public:
    CPatience(unsigned long milliseconds, const CTerminateWait* terminate)
        : m_milliseconds(milliseconds), m_terminate(terminate), m_start(monotonicMilliseconds()) {}

    bool isEndless() const { return m_milliseconds == CPMutex::kInfinite && !m_terminate; }

    // 0, or what the wait ends with. Naps a little when it goes on.
    int napOrGiveUp() const {
        if (m_terminate && m_terminate->isTerminated()) {
            return ECANCELED;
        }
        if (m_milliseconds != CPMutex::kInfinite &&
            monotonicMilliseconds() - m_start >= m_milliseconds) {
            return ETIMEDOUT;
        }
        CPortable::Sleep(kLookMilliseconds);
        return 0;
    }

    bool isTerminated() const { return m_terminate && m_terminate->isTerminated(); }

private:
    const unsigned long m_milliseconds;
    const CTerminateWait* const m_terminate;
    const std::uint64_t m_start;
};

}  // namespace

// One per mutex and process, never freed. The file belongs to the thread that holds `inside`.
struct CPMutexState {
    std::string name;
    std::mutex* inside = new std::mutex;  // another one after a fork
    std::atomic<std::uint64_t> owner{0};  // the number of the holder if it is of this process
    int depth = 0;                        // changed by the owner only
    std::uint64_t holding = 0;            // counts the holdings of this process
    int users = 0;                        // CPMutex objects; guarded by the registry's lock
    CSharedFile file;
    CPMutexState* nextOfThread = nullptr;  // that the same thread holds

    CPMutexState() = default;
    ~CPMutexState() { delete inside; }  // of one that could not be registered for want of memory
    CPMutexState(const CPMutexState&) = delete;
    CPMutexState& operator=(const CPMutexState&) = delete;

    bool heldByCaller() const {
        return owner.load(std::memory_order_relaxed) == currentThreadNumber();
    }

    [[nodiscard]] int takeInside(const CPatience& patience);
    [[nodiscard]] int takeFile(const CPatience& patience);
    [[nodiscard]] int takeOpenFile(const CPatience& patience, bool& hasWaited);
    void take();
    void giveUp();
};

namespace {

// What a thread holds, so that it does not take it along when it ends.
class CHeldByThread {
public:
    void giveUpAll() {
        m_isNoted = false;
        while (m_first) {
            m_first->giveUp();
        }
    }

    // Whether giveUpAll will be called at the end of the thread.
    bool isNoted() const { return m_isNoted; }
    void note() { m_isNoted = true; }

    void add(CPMutexState* state) {
        state->nextOfThread = m_first;
        m_first = state;
    }
    void remove(CPMutexState* state) {
        CPMutexState** at = &m_first;
        while (*at && *at != state) {
            at = &(*at)->nextOfThread;
        }
        if (*at) {
            *at = state->nextOfThread;
        }
    }
    void forget() { m_first = nullptr; }

private:
    CPMutexState* m_first = nullptr;
    bool m_isNoted = false;
};

constinit thread_local CHeldByThread t_held;

// The states of this process by object name. Never destroyed; kept usable in a forked child, which
// holds none of the locks that its parent's threads held.
class CMutexRegistry {
public:
    static CMutexRegistry& instance() {
        static CMutexRegistry* const registry = new CMutexRegistry;
        return *registry;
    }

    CPMutexState* join(const std::string& name) {
        const CPlainGuard guard(m_lock);
        const auto found = m_states.find(name);
        if (found != m_states.end()) {
            ++found->second->users;
            return found->second.get();
        }
        auto made = std::make_unique<CPMutexState>();
        made->name = name;
        made->users = 1;
        return m_states.emplace(name, std::move(made)).first->second.get();
    }

    // The last one closes the file, unless a thread still holds the lock.
    void leave(CPMutexState& state) {
        const CPlainGuard guard(m_lock);
        if (--state.users == 0 && state.owner.load() == 0) {
            state.file.close();
        }
    }

    // What a thread holds is given up at its end. A destructor of t_held would do that too, but to note
    // one the C library needs memory, and without it ends the process. False without memory.
    bool noteEndOfThread() {
        if (m_hasKey && !t_held.isNoted()) {
            if (pthread_setspecific(m_endOfThread, &t_held) != 0) {
                return false;
            }
            t_held.note();
        }
        return true;
    }

private:
    // A program that uses up all keys has to end its threads without the lock.
    CMutexRegistry()
        : m_hasKey(pthread_key_create(&m_endOfThread, [](void* held) {
                       static_cast<CHeldByThread*>(held)->giveUpAll();
                   }) == 0) {
        pthread_atfork(prepareFork, afterForkInParent, afterForkInChild);
    }

    // Held from before the fork to after it, by the forking thread in both processes.
    static void prepareFork() NO_THREAD_SAFETY_ANALYSIS { instance().m_lock.lock(); }
    static void afterForkInParent() NO_THREAD_SAFETY_ANALYSIS { instance().m_lock.unlock(); }
    static void afterForkInChild() NO_THREAD_SAFETY_ANALYSIS {
        for (const auto& entry : instance().m_states) {
            CPMutexState& state = *entry.second;
            if (state.heldByCaller()) {
                state.inside->unlock();
            }
            state.owner.store(0, std::memory_order_relaxed);
            state.depth = 0;
            state.file.close();
            // A thread that does not exist here may be inside.
            instance().m_inherited.push_front(state.inside);
            state.inside = new std::mutex;
        }
        t_held.forget();
        instance().m_lock.unlock();
    }

    pthread_key_t m_endOfThread{};
    const bool m_hasKey;
    CPlainMutex m_lock;
    std::map<std::string, std::unique_ptr<CPMutexState>> m_states GUARDED_BY(m_lock);
    std::forward_list<std::mutex*> m_inherited GUARDED_BY(m_lock);
};

}  // namespace

int CPMutexState::takeInside(const CPatience& patience) {
    if (patience.isEndless()) {
        inside->lock();
        return 0;
    }
    while (!inside->try_lock()) {
        if (const int error = patience.napOrGiveUp()) {
            return error;
        }
    }
    return 0;
}

int CPMutexState::takeOpenFile(const CPatience& patience, bool& hasWaited) {
    for (hasWaited = false;; hasWaited = true) {
        const bool isWaiting = hasWaited && patience.isEndless();
        if (::flock(file.descriptor(), isWaiting ? LOCK_EX : LOCK_EX | LOCK_NB) == 0) {
            return 0;
        }
        if (errno != EINTR && errno != EWOULDBLOCK) {
            return errno;
        }
        if (patience.isEndless()) {
            continue;
        }
        if (const int error = patience.napOrGiveUp()) {
            return error;
        }
    }
}

// The look at the file before its lock is taken counts, unless that has taken time: whoever is going
// to rely on the lock asks isStillHeld.
int CPMutexState::takeFile(const CPatience& patience) try {
    int error = EAGAIN;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        bool hasWaited = false;
        error = file.isInPlace() ? 0 : file.open(name, sizeof(CHolderNote));
        if (error == 0) {
            error = takeOpenFile(patience, hasWaited);
        }
        if (error != 0 || !hasWaited || file.isInPlace()) {
            return error;
        }
        file.close();  // and with it the lock of a file that nobody else will find
    }
    return error != 0 ? error : EAGAIN;
} catch (const std::bad_alloc&) {
    return ENOMEM;
}

void CPMutexState::take() {
    owner.store(currentThreadNumber(), std::memory_order_relaxed);
    depth = 1;
    ++holding;
    t_held.add(this);
}

void CPMutexState::giveUp() {
    t_held.remove(this);
    depth = 0;
    owner.store(0, std::memory_order_relaxed);
    if (file.isOurs()) {
        ::flock(file.descriptor(), LOCK_UN);
    }
    inside->unlock();
}

void CPMutex::registerForkHandlers() {
    CMutexRegistry::instance();
}

CPMutex::CPMutex(int /*shared*/, int /*owned*/, const CSharedPath& path, int /*create*/,
                 int /*recursive*/)
    : m_shared(nullptr) {
    const std::string name = objectName(kLockKind, path);
    m_error = path.error() != 0 ? path.error() : CSharedFile::make(name, sizeof(CHolderNote));
    m_shared = CMutexRegistry::instance().join(name);
}

CPMutex::~CPMutex() {
    while (isHeldHere()) {
        (void)release();  // held here
    }
    CMutexRegistry::instance().leave(*m_shared);
}

int CPMutex::waits() const {
    return m_holding == m_shared->holding ? m_waits : 0;
}

CPMutex::eWaitResult CPMutex::wait(unsigned long milliseconds, CTerminateWait* terminate) {
    if (m_shared->heldByCaller()) {
        ++m_shared->depth;
        m_waits = waits() + 1;
        m_holding = m_shared->holding;
        return eOwned;
    }
    const CPatience patience(milliseconds, terminate);
    int error = patience.isTerminated()                         ? ECANCELED
                : !CMutexRegistry::instance().noteEndOfThread() ? ENOMEM
                                                                : m_shared->takeInside(patience);
    if (error == 0) {
        error = m_shared->takeFile(patience);
        if (error != 0) {
            m_shared->inside->unlock();
        }
    }
    switch (error) {
        case 0:
            m_shared->take();
            m_waits = 1;
            m_holding = m_shared->holding;
            return eOwned;
        case ETIMEDOUT:
            return eTimeout;
        case ECANCELED:
            return eTerminated;
        default:
            m_error = error;
            return eFailed;
    }
}

int CPMutex::release() {
    if (!m_shared->heldByCaller()) {
        return EPERM;
    }
    --m_waits;
    if (--m_shared->depth == 0) {
        m_shared->giveUp();
    }
    return 0;
}

bool CPMutex::isStillHeld() const {
    return m_shared->heldByCaller() && m_shared->file.isInPlace();
}

CPMutex::Counter CPMutex::counter() const {
    Counter counter{};
    const bool isRead =
        m_shared->heldByCaller() && ::pread(m_shared->file.descriptor(), &counter, sizeof counter,
                                            offsetof(CHolderNote, counter)) == sizeof counter;
    return isRead ? counter : Counter{};
}

bool CPMutex::putCounter(const Counter& counter) const {
    if (!isStillHeld()) {
        return false;
    }
    (void)!::pwrite(m_shared->file.descriptor(), &counter, sizeof counter,
                    offsetof(CHolderNote, counter));
    return true;
}

bool CPMutex::isHeldHere() const {
    return m_shared->heldByCaller() && waits() > 0;
}

bool CPMutex::isHeldThroughAnother() const {
    return m_shared->heldByCaller() && m_shared->depth > waits();
}

void CPMutex::noteHolding() const {
    timespec now{};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    const CHolderNote note{CPortable::GetCurrentProcessId(), now.tv_sec, 0, 0, 0};
    if (m_shared->heldByCaller() && m_shared->file.isOurs()) {
        // Only for telling a person.
        (void)!::pwrite(m_shared->file.descriptor(), &note, offsetof(CHolderNote, mark), 0);
    }
}

void CPMutex::setMark(bool isSet) const {
    const std::int64_t mark = isSet ? 1 : 0;
    if (isStillHeld()) {
        (void)!::pwrite(m_shared->file.descriptor(), &mark, sizeof mark,
                        offsetof(CHolderNote, mark));
    }
}

bool CPMutex::isMarked() const {
    std::int64_t mark = 0;
    return isStillHeld() &&
           ::pread(m_shared->file.descriptor(), &mark, sizeof mark, offsetof(CHolderNote, mark)) ==
               static_cast<ssize_t>(sizeof mark) &&
           mark != 0;
}

CPMutex::Holder CPMutex::holder() const {
    CSharedFile file;
    if (file.open(m_shared->name, sizeof(CHolderNote)) != 0) {
        return {0, 0};
    }
    const std::int32_t pid = holderOfFileLock(file.device(), file.inode());
    CHolderNote note{};
    const bool isNoted =
        ::pread(file.descriptor(), &note, sizeof note, 0) == static_cast<ssize_t>(sizeof note) &&
        note.pid == pid;
    return {pid, isNoted ? note.sinceSec : 0};
}

}  // namespace VQRegLib
