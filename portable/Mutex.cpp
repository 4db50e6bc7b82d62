#include "portable/Mutex.h"

#include <pthread.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>

#include "portable/SharedObject.h"

namespace VQRegLib {

namespace {

// What the processes share. The tag keeps apart programs whose mutexes have another shape.
struct SharedMutex {
    struct Tag {
        char magic[8];
        std::uint32_t version;
        std::uint32_t wordSize;
        std::uint32_t libc;
        std::uint32_t mutexSize;
    };
    Tag tag;
    pthread_mutex_t mutex;
    std::atomic<std::int32_t> holderPid;
    std::atomic<std::int64_t> heldSince;
};

constexpr SharedMutex::Tag kTag = {{'C', 'P', 'M', 'u', 't', 'e', 'x', '\0'},
                                   1,
                                   sizeof(void*),
#ifdef __GLIBC__
                                   1,
#else
                                   0,
#endif
                                   sizeof(pthread_mutex_t)};

// Robust, so that a holder's death hands it on. Not of the recursive kind: that compares thread
// ids, which two containers may have in common; the depth is counted in CPMutexState instead.
int initialiseSharedMutex(void* address) {
    auto* const shared = new (address) SharedMutex{};
    shared->tag = kTag;
    pthread_mutexattr_t attributes;
    int error = pthread_mutexattr_init(&attributes);
    if (error != 0) {
        return error;
    }
    pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    error = pthread_mutex_init(&shared->mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
    return error;
}

std::atomic<std::int32_t> g_pid{0};  // getpid is a system call

std::int32_t cachedPid() {
    std::int32_t pid = g_pid.load(std::memory_order_relaxed);
    if (pid == 0) {
        pid = getpid();
        g_pid.store(pid, std::memory_order_relaxed);
    }
    return pid;
}

// Numbers the threads of the process. pthread_self would not do: the thread that follows one that
// died holding a lock may be given the same value.
std::uint64_t currentThreadNumber() {
    static std::atomic<std::uint64_t> last{0};
    thread_local std::uint64_t number = 0;
    if (number == 0) {
        number = ++last;
    }
    return number;
}

constexpr long kSliceNanoseconds = 50'000'000;  // how late a timed wait may notice its end

std::uint64_t monotonicMilliseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000 +
           static_cast<std::uint64_t>(now.tv_nsec) / 1'000'000;
}

timespec nextSlice() {
    timespec at{};
    clock_gettime(CLOCK_REALTIME, &at);
    at.tv_nsec += kSliceNanoseconds;
    if (at.tv_nsec >= 1'000'000'000) {
        at.tv_nsec -= 1'000'000'000;
        ++at.tv_sec;
    }
    return at;
}

}  // namespace

// One per mutex and process. It stays mapped until the process ends: a lock that is held when its
// memory goes could not be handed on.
struct CPMutexState {
    SharedMutex* shared = nullptr;
    std::atomic<std::uint64_t> owner{0};  // the number of the holder if it is of this process
    int depth = 0;                        // changed by the owner only

    bool heldByCaller() const {
        return owner.load(std::memory_order_relaxed) == currentThreadNumber();
    }

    void take() {
        owner.store(currentThreadNumber(), std::memory_order_relaxed);
        depth = 1;
        timespec now{};
        clock_gettime(CLOCK_REALTIME_COARSE, &now);
        shared->heldSince.store(now.tv_sec, std::memory_order_relaxed);
        shared->holderPid.store(cachedPid(), std::memory_order_relaxed);
    }

    void giveUp() {
        shared->holderPid.store(0, std::memory_order_relaxed);
        owner.store(0, std::memory_order_relaxed);
        pthread_mutex_unlock(&shared->mutex);
    }
};

namespace {

// The states of this process by object name. Never destroyed; kept usable in a forked child, which
// holds none of the locks that its parent's threads held.
class CMutexRegistry {
public:
    static CMutexRegistry& instance() {
        static CMutexRegistry* const registry = new CMutexRegistry;
        return *registry;
    }

    CPMutexState* find(const std::string& name, int* error) {
        const std::lock_guard<std::mutex> guard(m_lock);
        const auto found = m_states.find(name);
        if (found != m_states.end()) {
            return found->second.get();
        }
        CSharedObject object;
        *error = object.open(name, sizeof(SharedMutex), initialiseSharedMutex);
        if (*error != 0) {
            return nullptr;
        }
        auto* const shared = static_cast<SharedMutex*>(object.address());
        if (std::memcmp(&shared->tag, &kTag, sizeof kTag) != 0) {
            *error = EPROTO;
            return nullptr;
        }
        auto state = std::make_unique<CPMutexState>();
        state->shared = shared;
        CPMutexState* const result = state.get();
        m_states.emplace(name, std::move(state));
        object.leak();
        return result;
    }

private:
    CMutexRegistry() { pthread_atfork(prepareFork, afterForkInParent, afterForkInChild); }

    static void prepareFork() { instance().m_lock.lock(); }
    static void afterForkInParent() { instance().m_lock.unlock(); }
    static void afterForkInChild() {
        g_pid.store(0, std::memory_order_relaxed);
        for (const auto& entry : instance().m_states) {
            entry.second->owner.store(0, std::memory_order_relaxed);
            entry.second->depth = 0;
        }
        instance().m_lock.unlock();
    }

    std::mutex m_lock;
    std::map<std::string, std::unique_ptr<CPMutexState>> m_states;
};

int lockInSlices(pthread_mutex_t* mutex, unsigned long milliseconds,
                 const CTerminateWait* terminate) {
    const std::uint64_t start = monotonicMilliseconds();
    for (;;) {
        if (terminate && terminate->isTerminated()) {
            return ECANCELED;
        }
        const int tried = pthread_mutex_trylock(mutex);
        if (tried != EBUSY) {
            return tried;
        }
        if (milliseconds != CPMutex::kInfinite && monotonicMilliseconds() - start >= milliseconds) {
            return ETIMEDOUT;
        }
        const timespec until = nextSlice();
        const int waited = pthread_mutex_timedlock(mutex, &until);
        if (waited != ETIMEDOUT) {
            return waited;
        }
    }
}

}  // namespace

void CPMutex::registerForkHandlers() {
    CMutexRegistry::instance();
}

CPMutex::CPMutex(int /*shared*/, int /*owned*/, const std::string& path, int /*create*/,
                 int /*recursive*/)
    : m_pState(CMutexRegistry::instance().find(CSharedObject::nameForPath("CPMutex", path),
                                               &m_nError)) {}

CPMutex::~CPMutex() {
    while (m_pState && m_nWaits > 0 && m_pState->heldByCaller()) {
        release();
    }
}

CPMutex::eWaitResult CPMutex::wait(unsigned long milliseconds, CTerminateWait* terminate) {
    if (m_pState->heldByCaller()) {
        ++m_pState->depth;
        ++m_nWaits;
        return eOwned;
    }
    pthread_mutex_t* const mutex = &m_pState->shared->mutex;
    const int error = milliseconds == kInfinite && !terminate
                          ? pthread_mutex_lock(mutex)
                          : lockInSlices(mutex, milliseconds, terminate);
    switch (error) {
        case 0:
            break;
        case EOWNERDEAD:
            // At once: unlocked without this, the mutex would be lost for good.
            pthread_mutex_consistent(mutex);
            break;
        case ETIMEDOUT:
            return eTimeout;
        case ECANCELED:
            return eTerminated;
        default:
            return eFailed;
    }
    m_pState->take();
    ++m_nWaits;
    return error == 0 ? eOwned : eOwnerDied;
}

int CPMutex::release() {
    if (!m_pState->heldByCaller()) {
        return EPERM;
    }
    --m_nWaits;
    if (--m_pState->depth == 0) {
        m_pState->giveUp();
    }
    return 0;
}

bool CPMutex::isHeldThroughAnother() const {
    return m_pState->heldByCaller() && m_pState->depth > m_nWaits;
}

CPMutex::Holder CPMutex::holder() const {
    return {m_pState->shared->holderPid.load(std::memory_order_relaxed),
            m_pState->shared->heldSince.load(std::memory_order_relaxed)};
}

}  // namespace VQRegLib
