#include "portable/Semaphore.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "portable/FileDescriptor.h"
#include "portable/Portable.h"
#include "portable/SemaphoreWait.h"

namespace VQRegLib {

namespace {

constexpr int kAttempts = 1000;  // each waits for a sender that is just looking

int initialiseSemaphore(void* address) {
    return sem_init(static_cast<sem_t*>(address), 1, 0) == 0 ? 0 : errno;
}

std::string pathOf(const std::string& name) {
    return std::string(CSharedObject::directory()) + "/" + CPSemaphore::fileName(name);
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
char g_szOwnedPath[300];

void removeOwnedAtExit() {
    const int fd = g_ownedFile.load();
    // Alone: another process of this id in another container may own it too.
    if (fd >= 0 && g_ownerPid.load() == getpid() && flock(fd, LOCK_EX | LOCK_NB) == 0) {
        unlinkLocked(fd, g_szOwnedPath);
    }
}

// A child that kept the file open would keep its parent's semaphore alive.
void disownInChild() {
    const int fd = g_ownedFile.exchange(-1);
    if (fd >= 0) {
        ::close(fd);
    }
}

void keepOwned(int fd, const std::string& path) {
    static const bool registered = [] {
        std::atexit(removeOwnedAtExit);
        pthread_atfork(nullptr, nullptr, disownInChild);
        return true;
    }();
    (void)registered;
    g_szOwnedPath[path.copy(g_szOwnedPath, sizeof g_szOwnedPath - 1)] = '\0';
    g_ownerPid.store(getpid());
    const int previous = g_ownedFile.exchange(fd);
    if (previous >= 0) {
        ::close(previous);
    }
}

}  // namespace

CPSemaphore::CPSemaphore(int /*shared*/, int initial, int /*maximum*/, const std::string& name,
                         int /*create*/)
    : m_strName(name) {
    openObject();
    for (int count = 0; isOpen() && isCreator() && count < initial; ++count) {
        release();
    }
}

CPSemaphore::~CPSemaphore() = default;

void CPSemaphore::openObject() {
    m_pObject = std::make_unique<CSharedObject>();
    m_nError = m_pObject->open(fileName(m_strName), sizeof(sem_t), initialiseSemaphore);
}

bool CPSemaphore::wait(unsigned long milliseconds, CTerminateWait* terminate) {
    return waitSemaphore(semaphore(), milliseconds, terminate);
}

void CPSemaphore::release() {
    sem_post(semaphore());
}

bool CPSemaphore::own() {
    for (int attempt = 0; attempt < kAttempts && isOpen(); ++attempt) {
        int fd = -1;
        m_nError = tryToOwn(&fd);
        if (m_nError == 0) {
            keepOwned(fd, pathOf(m_strName));
            return true;
        }
        if (m_nError == EWOULDBLOCK) {
            CPortable::Sleep(1);  // a sender is looking whether anybody owns it
        }
        openObject();  // that sender, or an administrator, may have taken it away
    }
    return false;
}

// Owners share a lock on the file; whoever finds none takes the name away under an exclusive one.
int CPSemaphore::tryToOwn(int* fd) const {
    CFileDescriptor file(openFile(pathOf(m_strName)));
    if (!file.isOpen() || flock(file.get(), LOCK_SH | LOCK_NB) != 0) {
        return errno;
    }
    struct stat status {};
    if (fstat(file.get(), &status) != 0) {
        return errno;
    }
    if (status.st_nlink == 0 || status.st_ino != m_pObject->inode()) {
        return ESTALE;
    }
    *fd = file.release();
    return 0;
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

}  // namespace VQRegLib
