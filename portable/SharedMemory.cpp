// How processes find one block of memory that none of them can take away.
//
// The finding is a named file of a few bytes, which says: segment so and so, of IPC namespace so and so,
// marked with these sixteen bytes. Everybody may write that file, so nothing in it is believed. The
// segment that it names must have the right size, and its first bytes must be the tag, the name's hash and
// the same sixteen bytes; a segment of another program has not, and one of an older life of this one has
// not either, because the bytes are drawn by lot each time.
//
// Making one is done under a lock of one byte of the file (F_OFD_SETLK), by one process, after it has
// looked once more: the others were waiting for just this. A second byte is locked, shared, by all who use
// the block. It answers the one question that cannot be answered otherwise: this namespace has no such
// segment; does another one use it? With users there, a second block would split the machine into two
// halves that do not see each other's changes, so the opening fails (EXDEV) and says why.
//
// isCurrent() is asked once a second by readers, and at every change. Most of it is one fstat: nobody
// writes into the file of a block that is in use, so an unchanged change time says that all is as it was,
// except that two changes within a tick of the kernel's clock have the same time; a look counts only when
// the last change was longer ago than that.
#include "portable/SharedMemory.h"

#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "portable/ObjectName.h"
#include "portable/Portable.h"

namespace VQRegLib {

namespace {

constexpr int kMakingNaps = 400;  // at a process that is making the block
constexpr unsigned long kMakingNapMilliseconds = 5;
constexpr std::int64_t kPassedNanoseconds = 50'000'000;  // more than any clock's tick

// Bytes of the named file that are locked.
enum eLockedByte : off_t { eMaking = 0, eUsing = 1 };

[[nodiscard]] int lockByte(int fd, eLockedByte byte, short kind) {
    struct flock lock {};
    lock.l_type = kind;
    lock.l_whence = SEEK_SET;
    lock.l_start = byte;
    lock.l_len = 1;
    return ::fcntl(fd, F_OFD_SETLK, &lock) == 0 ? 0 : errno;
}

std::int64_t nanoseconds(const timespec& time) {
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

// At a place that is reserved first, as any other mapping: who keeps a record of the process's memory,
// as a sanitizer does, knows then that it is new. Null with errno.
void* attachSegment(int id, std::size_t size) {
    void* const place = ::mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (place == MAP_FAILED) {
        return nullptr;
    }
    void* const segment = ::shmat(id, place, SHM_REMAP);
    if (segment == reinterpret_cast<void*>(-1)) {
        const int error = errno;
        ::munmap(place, size);
        errno = error;
        return nullptr;
    }
    return segment;
}

CBlockHeader headerFor(const std::string& name, const unsigned char (&lot)[16],
                       unsigned long size) {
    CBlockHeader header{};
    std::memcpy(header.tag, kBlockTag, sizeof kBlockTag);
    header.size = size;
    std::memcpy(header.lot, lot, sizeof lot);
    hash128(name).copy(header.name, sizeof header.name);
    return header;
}

}  // namespace

CPSharedMemory::CPSharedMemory(const CSharedPath& path, unsigned long size, eHow how)
    : m_name(objectName(kBlockKind, path)) {
    m_error = open(size, how);
}

CPSharedMemory::~CPSharedMemory() {
    if (m_segment) {
        ::shmdt(m_segment);
    }
}

void* CPSharedMemory::getAddress() const {
    return m_segment ? static_cast<char*>(m_segment) + sizeof(CBlockHeader) : nullptr;
}

bool CPSharedMemory::read(CBlockRecord& record) const {
    return ::pread(m_file.descriptor(), &record, sizeof record, 0) ==
           static_cast<ssize_t>(sizeof record);
}

int CPSharedMemory::open(unsigned long size, eHow how) {
    int error = m_file.open(m_name, sizeof(CBlockRecord));
    if (error == 0) {
        error = attach(size);
        if (error != 0) {
            error = make(size, how);
        }
    }
    if (error == 0) {
        // Nobody else may take the place of a block that is in use. Without it the block is as good.
        (void)lockByte(m_file.descriptor(), eUsing, F_RDLCK);
    }
    return error;
}

// What tells this IPC namespace from others; 0 where there is no /proc, which takes its time there.
std::uint64_t CPSharedMemory::ipcNamespace() {
    struct stat status {};
    if (m_ipcNamespace == 0 && ::stat("/proc/self/ns/ipc", &status) == 0) {
        m_ipcNamespace = status.st_ino;
    }
    return m_ipcNamespace;
}

// 0 when the file leads to the block; otherwise why not. What bears the lot is the block, so the
// namespace is of interest only where it is not found.
int CPSharedMemory::attach(unsigned long size) {
    CBlockRecord record{};
    if (!read(record) || std::memcmp(record.tag, kBlockTag, sizeof kBlockTag) != 0 ||
        record.id != static_cast<int>(record.id)) {
        return ENOENT;
    }
    const int error = attach(record, size);
    return error == 0 || record.ipcNamespace == ipcNamespace() ? error : EXDEV;
}

int CPSharedMemory::attach(const CBlockRecord& record, unsigned long size) {
    const int id = static_cast<int>(record.id);
    struct shmid_ds status {};
    if (::shmctl(id, IPC_STAT, &status) != 0) {
        return errno;
    }
    if (status.shm_segsz != sizeof(CBlockHeader) + size) {
        return EPROTO;
    }
    void* const segment = attachSegment(id, sizeof(CBlockHeader) + size);
    if (!segment) {
        return errno;
    }
    const CBlockHeader expected = headerFor(m_name, record.lot, size);
    if (std::memcmp(segment, &expected, sizeof expected) != 0) {
        ::shmdt(segment);
        return EPROTO;
    }
    m_segment = segment;
    m_id = id;
    std::memcpy(m_lot, record.lot, sizeof m_lot);
    return 0;
}

// Under a lock of its own, because others may be at it too. A block of this namespace to which nobody
// can attach is gone; one of another namespace is gone when nobody uses it.
int CPSharedMemory::make(unsigned long size, eHow how) {
    const int fd = m_file.descriptor();
    int error = lockByte(fd, eMaking, F_WRLCK);
    const int mostNaps = how == eWait ? kMakingNaps : 0;
    for (int naps = 0; error == EAGAIN && naps < mostNaps; ++naps) {
        CPortable::Sleep(kMakingNapMilliseconds);
        error = lockByte(fd, eMaking, F_WRLCK);
    }
    if (error != 0) {
        return error;
    }
    error = attach(size);
    if (error == EXDEV && lockByte(fd, eUsing, F_WRLCK) == 0) {
        error = ENOENT;
    }
    if (error != 0 && error != EXDEV) {
        error = makeSegment(size);
    }
    (void)lockByte(fd, eMaking, F_UNLCK);  // it goes with the descriptor at the latest
    return error;
}

int CPSharedMemory::makeSegment(unsigned long size) {
    CBlockRecord record{};
    if (::getrandom(record.lot, sizeof record.lot, GRND_NONBLOCK) !=
        static_cast<ssize_t>(sizeof record.lot)) {
        const std::string lot = CPortable::newPUUID();  // early at boot
        lot.copy(reinterpret_cast<char*>(record.lot), sizeof record.lot);
    }
    const int id = ::shmget(IPC_PRIVATE, sizeof(CBlockHeader) + size, IPC_CREAT | IPC_EXCL | 0666);
    if (id < 0) {
        return errno;
    }
    void* const segment = attachSegment(id, sizeof(CBlockHeader) + size);
    const int error = errno;
    ::shmctl(id, IPC_RMID, nullptr);  // it lives while somebody is attached
    if (!segment) {
        return error;
    }
    const CBlockHeader header = headerFor(m_name, record.lot, size);
    std::memcpy(segment, &header, sizeof header);
    std::memcpy(record.tag, kBlockTag, sizeof kBlockTag);
    record.ipcNamespace = ipcNamespace();
    record.id = id;
    if (::pwrite(m_file.descriptor(), &record, sizeof record, 0) !=
        static_cast<ssize_t>(sizeof record)) {
        const int failure = errno;
        ::shmdt(segment);
        return failure;
    }
    m_segment = segment;
    m_id = id;
    std::memcpy(m_lot, record.lot, sizeof m_lot);
    m_creator = true;
    return 0;
}

// Nobody writes into the named file of a block that is in use; so mostly a look at the descriptor
// will do. Changes that follow one another within a tick of the kernel's clock bear the same time, and
// only a time that had passed when the content was looked at tells that nothing has come after it.
bool CPSharedMemory::isCurrent() {
    if (m_segment && isUnchanged()) {
        return true;
    }
    m_checked = {};
    if (!m_file.isOurs() && m_file.open(m_name, sizeof(CBlockRecord)) == 0) {
        (void)lockByte(m_file.descriptor(), eUsing, F_RDLCK);  // a program had closed it
    }
    CBlockRecord record{};
    const bool isSame = m_segment && m_file.isNamed() && read(record) && record.id == m_id &&
                        std::memcmp(record.lot, m_lot, sizeof m_lot) == 0;
    if (isSame) {
        noteChecked();
    }
    return isSame;
}

bool CPSharedMemory::isUnchanged() {
    const bool isInPlace = m_file.isInPlace();
    const timespec changed = m_file.changeTime();
    return isInPlace && changed.tv_sec == m_checked.tv_sec && changed.tv_nsec == m_checked.tv_nsec;
}

void CPSharedMemory::noteChecked() {
    timespec now{};
    const timespec changed = m_file.changeTime();
    if (::clock_gettime(CLOCK_REALTIME_COARSE, &now) == 0 &&
        nanoseconds(now) - nanoseconds(changed) > kPassedNanoseconds) {
        m_checked = changed;
    }
}

std::uint64_t CPSharedMemory::tag() const {
    std::uint64_t tag = 0;
    std::memcpy(&tag, m_lot, sizeof tag);
    return tag | 1;
}

}  // namespace VQRegLib
