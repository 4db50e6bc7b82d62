// Who owns a semaphore, and how it goes when nobody does.
//
// A semaphore of the system has a name and no owner: it stays for good when its process dies. A machine
// whose programs come and go would gather thousands, and every sender would wake them all. Process ids do
// not tell which are in use: they are reused, and a container numbers its processes anew.
//
// So who waits on one holds a shared lock (flock) on the file behind its name, and the kernel lets go of
// that when the process dies, however it dies. Whoever gets the exclusive lock without waiting knows that
// there is no owner, and takes the name away while it holds it. The race of an owner that comes meanwhile
// is the owner's to notice: after it has its lock it looks whether the file still has the name, and
// begins again if not. A semaphore of a program that knows nothing of this has no lock either; such a one
// is only taken away when its name ends in a number that no process has, and it is no longer new.
//
// The end of the process takes its own semaphore along, and must be able to do that when nearly nothing
// works any more: everything it needs is in plain words and a fixed array, written before the descriptor
// that makes them count. A child of fork closes its copy, or it would keep its parent's alive.
#include "portable/Semaphore.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "portable/FileDescriptor.h"
#include "portable/ObjectName.h"
#include "portable/Portable.h"
#include "portable/SharedCount.h"
#include "portable/SharedFile.h"

namespace VQRegLib {

namespace {

constexpr int kLostNapMilliseconds = 100;
constexpr std::uint64_t kSliceMilliseconds = 50;  // how late a termination may be noticed
constexpr std::uint64_t kLongestMilliseconds = 3'600'000;
constexpr long kMomentSeconds = 3;  // a new semaphore's maker may not have got any further yet

int initialiseSemaphore(void* address) {
    return sem_init(static_cast<sem_t*>(address), 1, 0) == 0 ? 0 : errno;
}

std::string pathOf(const std::string& name) {
    return objectFile(kSemaphoreFilePrefix + name);
}

int openFile(const std::string& path) {
    return ::open(path.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
}

// With a lock that excludes every owner held, so that the name cannot come to mean another object.
void unlinkLocked(int fd, const std::string& path) {
    struct stat status {};
    if (fstat(fd, &status) == 0 && status.st_nlink > 0) {
        ::unlink(path.c_str());
    }
}

// What the process owns: the file with the lock, for the end of the process. Plain words, because
// exit and fork may come at any time.
std::atomic<int> g_ownedFile{-1};
std::atomic<pid_t> g_ownerPid{0};
std::atomic<dev_t> g_ownedDevice{0};
std::atomic<ino_t> g_ownedInode{0};
char g_szOwnedPath[300];
std::atomic<bool> g_isExiting{false};  // what is owned is taken along, and nothing more is

// A program that closes all descriptors may have given the number to a file of its own.
bool isOwnedFile(int fd, struct stat& status) {
    return fd >= 0 && fstat(fd, &status) == 0 && status.st_dev == g_ownedDevice.load() &&
           status.st_ino == g_ownedInode.load();
}

bool isOwnedFile(int fd) {
    struct stat status {};
    return isOwnedFile(fd, status);
}

void removeOwnedAtExit() {
    g_isExiting.store(true);
    const int fd = g_ownedFile.load();
    // Alone: another process of this id in another container may own it too.
    if (isOwnedFile(fd) && g_ownerPid.load() == getpid() && flock(fd, LOCK_EX | LOCK_NB) == 0) {
        unlinkLocked(fd, g_szOwnedPath);
    }
}

// In a child that kept the file open, it would keep the parent's semaphore alive.
void disown(int unless = -1) {
    const int fd = g_ownedFile.exchange(-1);
    if (fd != unless && isOwnedFile(fd)) {
        ::close(fd);
    }
}

void afterForkInChild() {
    g_isExiting.store(false);  // the child may have been made by a thread that does not exit
    disown();
}

// Tried again as long as there is no memory for it.
bool registerHandlers() {
    static std::atomic<bool> atExit{false};
    static std::atomic<bool> atFork{false};
    if (!atExit.load()) {
        atExit.store(std::atexit(removeOwnedAtExit) == 0);
    }
    if (!atFork.load()) {
        atFork.store(pthread_atfork(nullptr, nullptr, afterForkInChild) == 0);
    }
    return atExit.load() && atFork.load();
}

void keepOwned(int fd, const std::string& path) {
    if (path != g_szOwnedPath) {  // owned anew it is the same, and an exit may be reading it
        g_szOwnedPath[path.copy(g_szOwnedPath, sizeof g_szOwnedPath - 1)] = '\0';
    }
    g_ownerPid.store(getpid());
    disown(fd);  // what it may have owned before, unless its number has come back
    struct stat status {};
    fstat(fd, &status);
    g_ownedDevice.store(status.st_dev);
    g_ownedInode.store(status.st_ino);
    g_ownedFile.store(fd);
    if (g_isExiting.load()) {
        removeOwnedAtExit();  // it may have looked before this was owned
    }
}

// True when the name ends in a number that no process has, as far as this one can see.
bool namesNoProcess(const std::string& name) {
    const std::size_t begin = name.find_last_not_of("0123456789") + 1;
    if (begin == name.size()) {
        return false;
    }
    const unsigned long number = std::strtoul(name.c_str() + begin, nullptr, 10);
    return number == 0 || number > INT_MAX ||
           (kill(static_cast<pid_t>(number), 0) != 0 && errno == ESRCH);
}

// By the clock that the kernel gives files their times by. The time of birth, where the file system
// knows it: the other ones may move with every release.
bool isOlderThanAMoment(int fd) {
    struct statx status {};
    timespec now{};
    if (statx(fd, "", AT_EMPTY_PATH, STATX_CTIME | STATX_BTIME, &status) != 0 ||
        clock_gettime(CLOCK_REALTIME_COARSE, &now) != 0) {
        return false;
    }
    const auto& made = status.stx_mask & STATX_BTIME ? status.stx_btime : status.stx_ctime;
    return now.tv_sec - made.tv_sec > kMomentSeconds;
}

// One that was cut short, or is no semaphore for another reason. Who may do that to a name is for the
// directory to say.
void removeUseless(const std::string& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
        status.st_size != static_cast<off_t>(sizeof(sem_t))) {
        ::unlink(path.c_str());
    }
}

bool isRegularFile(int fd) {
    struct stat status {};
    return fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

CPSemaphore::CPSemaphore(int /*shared*/, int initial, int /*maximum*/, const std::string& name,
                         int /*create*/)
    : m_name(name) {
    openObject();
    for (int count = 0; isOpen() && isCreator() && count < initial; ++count) {
        release();
    }
}

CPSemaphore::~CPSemaphore() = default;

void CPSemaphore::openObject() {
    m_object = std::make_unique<CSharedObject>();
    m_isAnnounced = false;
    m_error = m_object->open(kSemaphoreFilePrefix + m_name, sizeof(sem_t), initialiseSemaphore);
}

bool CPSemaphore::wait(unsigned long milliseconds, CTerminateWait* terminate) {
    const CSharedCount count(semaphore());
    if (!m_isAnnounced.exchange(true)) {
        (void)count.announceWaiting();  // what is lost shows at the wait
    }
    std::uint64_t left = milliseconds == kInfinite ? UINT64_MAX : milliseconds;
    do {
        if (terminate && terminate->isTerminated()) {
            return false;
        }
        const std::uint64_t slice =
            std::min(left, terminate ? kSliceMilliseconds : kLongestMilliseconds);
        const CSharedCount::eOutcome outcome = count.wait(static_cast<unsigned long>(slice));
        if (outcome == CSharedCount::eTaken) {
            return true;
        }
        if (outcome == CSharedCount::eLost) {
            CPortable::Sleep(kLostNapMilliseconds);  // whoever waits again shall not spin
            return false;
        }
        left -= left == UINT64_MAX ? 0 : slice;
    } while (left > 0);
    return false;
}

void CPSemaphore::release() {
    (void)CSharedCount(semaphore()).post();  // one that is lost has nobody to wake
}

bool CPSemaphore::own(int attempts) {
    const std::string path = pathOf(m_name);
    int error = m_error;
    if (isOpen() && (g_isExiting.load() || !registerHandlers())) {
        m_error = g_isExiting.load() ? ESHUTDOWN : ENOMEM;
        return false;
    }
    if (!isOpen() && m_error == EINVAL) {
        removeUseless(path);
        openObject();
    }
    for (int attempt = 0; attempt < attempts && isOpen(); ++attempt) {
        int fd = -1;
        error = tryToOwn(&fd);
        if (error == 0) {
            keepOwned(fd, path);
            return true;
        }
        if (error == EWOULDBLOCK) {
            CPortable::Sleep(1);  // a sender is looking whether anybody owns it
        }
        openObject();  // that sender, or an administrator, may have taken it away
    }
    if (isOpen()) {
        m_error = error;
    }
    return false;
}

// Owners share a lock on the file; whoever finds none takes the name away under an exclusive one.
int CPSemaphore::tryToOwn(int* fd) const {
    CFileDescriptor file(openFile(pathOf(m_name)));
    if (!file.isOpen() || flock(file.get(), LOCK_SH | LOCK_NB) != 0) {
        return errno;
    }
    struct stat status {};
    if (fstat(file.get(), &status) != 0) {
        return errno;
    }
    if (status.st_nlink == 0 || status.st_ino != m_object->inode()) {
        return ESTALE;
    }
    *fd = file.release();
    return 0;
}

void CPSemaphore::waitUntilFree(const std::string& name) {
    const CFileDescriptor file(openFile(pathOf(name)));
    for (int attempt = 0; attempt < CPSemaphore::kAttempts && file.isOpen(); ++attempt) {
        if (flock(file.get(), LOCK_SH | LOCK_NB) == 0 || errno != EWOULDBLOCK) {
            return;
        }
        CPortable::Sleep(1);
    }
}

long CPSemaphore::userOf(const std::string& name) {
    return CSharedFile::userOf(pathOf(name));
}

bool CPSemaphore::isExiting() {
    return g_isExiting.load();
}

bool CPSemaphore::isOwner() const {
    struct stat status {};
    return isOwnedFile(g_ownedFile.load(), status) && g_ownerPid.load() == getpid() &&
           status.st_ino == m_object->inode() && status.st_nlink > 0 &&
           status.st_size == static_cast<off_t>(sizeof(sem_t));
}

bool CPSemaphore::removeIfOwnerless(const std::string& name) {
    const std::string path = pathOf(name);
    const CFileDescriptor file(openFile(path));
    if (!file.isOpen() || flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
        return false;
    }
    unlinkLocked(file.get(), path);
    return true;
}

bool CPSemaphore::removeIfAbandoned(const std::string& name) {
    if (!namesNoProcess(name)) {
        return false;
    }
    const std::string path = pathOf(name);
    const CFileDescriptor file(openFile(path));
    if (!file.isOpen() || !isRegularFile(file.get()) || !isOlderThanAMoment(file.get()) ||
        flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
        return false;
    }
    unlinkLocked(file.get(), path);
    return true;
}

}  // namespace VQRegLib
