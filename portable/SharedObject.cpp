// Objects that are complete before anybody can see them. The file is made without a name, sized, filled,
// opened to everybody, and only then linked to its name. So nobody waits for a word that says "ready" and
// was to be written by a process that has died. Who loses the race of names opens the winner's object.
#include "portable/SharedObject.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>

#include "portable/FileDescriptor.h"
#include "portable/ObjectName.h"
#include "portable/SharedFile.h"

namespace VQRegLib {

namespace {

constexpr int kAttempts = 100;  // a name may come and go while it is being opened

}  // namespace

CSharedObject::~CSharedObject() {
    unmap();
}

void CSharedObject::unmap() {
    if (m_address) {
        munmap(m_address, m_size);
        m_address = nullptr;
    }
}

int CSharedObject::open(const std::string& name, std::size_t size, int (*initialise)(void*)) {
    m_size = size;
    const std::string path = objectFile(name);
    int error = 0;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        // Without O_CREAT first: a directory like this one may refuse O_CREAT on a file of another
        // user even to root.
        error = openExisting(path);
        if (error != ENOENT) {
            return error;
        }
        error = create(path, initialise);
        if (error != EEXIST) {
            return error;
        }
    }
    return error;
}

int CSharedObject::openExisting(const std::string& path) {
    const CFileDescriptor file(::open(path.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    if (!file.isOpen()) {
        return errno;
    }
    struct stat status {};
    if (fstat(file.get(), &status) != 0) {
        return errno;
    }
    if (!S_ISREG(status.st_mode) || static_cast<std::size_t>(status.st_size) != m_size) {
        return EINVAL;
    }
    m_creator = false;
    return map(file.get());
}

int CSharedObject::create(const std::string& path, int (*initialise)(void*)) {
    const CFileDescriptor file(::open(kObjectDirectory, O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    if (!file.isOpen()) {
        return errno;
    }
    // Reserves the pages: touching one that a full file system cannot give would be fatal.
    int error = CSharedFile::reserve(file.get(), m_size);
    if (error == 0) {
        error = map(file.get());
    }
    if (error == 0 && initialise) {
        error = initialise(m_address);
    }
    if (error == 0 && fchmod(file.get(), 0666) != 0) {
        error = errno;
    }
    if (error == 0) {
        error = CSharedFile::giveName(file.get(), path);
    }
    if (error != 0) {
        unmap();
        return error;
    }
    m_creator = true;
    return 0;
}

int CSharedObject::map(int fd) {
    struct stat status {};
    if (fstat(fd, &status) != 0) {
        return errno;
    }
    m_inode = status.st_ino;
    void* const address = mmap(nullptr, m_size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (address == MAP_FAILED) {
        return errno;
    }
    m_address = address;
    return 0;
}

}  // namespace VQRegLib
