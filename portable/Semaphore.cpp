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
std::atomic<dev_t> g_ownedDevice{0};
std::atomic<ino_t> g_ownedInode{0};
char g_szOwnedPath[300];

// A program that closes all descriptors may have given the number to a file of its own.
bool isOwnedFile(int fd) {
    struct stat status {};
    return fd >= 0 && fstat(fd, &status) == 0 && status.st_dev == g_ownedDevice.load() &&
           status.st_ino == g_ownedInode.load();
}

void removeOwnedAtExit() {
    const int fd = g_ownedFile.load();
    // Alone: another process of this id in another container may own it too.
    if (isOwnedFile(fd) && g_ownerPid.load() == getpid() && flock(fd, LOCK_EX | LOCK_NB) == 0) {
        unlinkLocked(fd, g_szOwnedPath);
    }
}

// In a child that kept the file open, it would keep the parent's semaphore alive.
void disown() {
    const int fd = g_ownedFile.exchange(-1);
    if (isOwnedFile(fd)) {
        ::close(fd);
    }
}

void keepOwned(int fd, const std::string& path) {
    static const bool registered = [] {
        std::atexit(removeOwnedAtExit);
        pthread_atfork(nullptr, nullptr, disown);
        return true;
    }();
    (void)registered;
    g_szOwnedPath[path.copy(g_szOwnedPath, sizeof g_szOwnedPath - 1)] = '\0';
    g_ownerPid.store(getpid());
    disown();  // what it may have owned before
    struct stat status {};
    fstat(fd, &status);
    g_ownedDevice.store(status.st_dev);
    g_ownedInode.store(status.st_ino);
    g_ownedFile.store(fd);
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
    int error = m_nError;
    for (int attempt = 0; attempt < kAttempts && isOpen(); ++attempt) {
        int fd = -1;
        error = tryToOwn(&fd);
        if (error == 0) {
            keepOwned(fd, pathOf(m_strName));
            return true;
        }
        if (error == EWOULDBLOCK) {
            CPortable::Sleep(1);  // a sender is looking whether anybody owns it
        }
        openObject();  // that sender, or an administrator, may have taken it away
    }
    if (isOpen()) {
        m_nError = error;
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
