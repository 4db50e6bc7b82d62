// The cross-process lock and the change stamp of a configuration file.
//
// Why reads need no lock. The stamp is a sequence word in memory that all processes share: odd while
// a writer replaces the file, even otherwise, and never the same twice. A process remembers the stamp
// under which it last read or wrote the file. An operation that changes nothing is valid at the
// instant at which it finds the two equal: no change that had been completed by then is missing from
// its tree. Where they differ it reads the file first. The path always names a complete text, so that
// needs no lock either; the stamp that is remembered was loaded before the file was opened, so what
// was read may be newer than it says, never older, and then the next operation reads once more.
//
// A writer holds the lock. It makes the stamp odd before it touches a name and even afterwards. Whoever
// finds it odd tries the lock without waiting. With the lock in hand and the stamp still odd, the
// writer is dead: the path is mended and the stamp made even. Without it the writer is at work, or
// stopped: the file is read as it is, old or new, and no stamp is remembered. The file is then kept
// open, for as long as it is the one that the path names there is no need to read it again.
//
// Only a missing file makes a read wait for the lock: on file systems without links and exchanges the
// path is absent for a moment, and otherwise it has to be made.
#include "RegLib/file/SharedState.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <string>
#include <utility>

#include "RegLib/base/AtEnd.h"
#include "RegLib/base/ThrowPoint.h"
#include "RegLib/file/ConfigFile.h"
#include "RegLib/trace/Trace.h"
#include "portable/FileOps.h"
#include "portable/MappedFiles.h"
#include "portable/NoCancellation.h"
#include "portable/ObjectName.h"
#include "portable/Portable.h"
#include "portable/SharedFile.h"

namespace VQRegLib {

namespace {

constexpr std::uint64_t kReplacing = 1;  // the bit that makes a stamp odd
constexpr std::uint32_t kComplaintSeconds = 60;
constexpr std::uint64_t kMarkNanoseconds = 500'000'000;  // at another's mark beside a new lock

// The object itself is at fault, not this process or the machine. A lock within the block's file that is
// not let go of (EAGAIN) counts, too.
bool isRefused(int error) {
    return error == EACCES || error == EPERM || error == EINVAL || error == EISDIR ||
           error == ELOOP || error == ENXIO || error == EMLINK || error == EAGAIN;
}

// The next even number above both.
std::uint64_t stampAfter(std::uint64_t stamp, std::uint64_t tick) {
    const std::uint64_t next = (std::max(tick, stamp + 1) + 1) & ~kReplacing;
    return next != 0 ? next : 2;
}

}  // namespace

void CSharedState::open() {
    try {
        m_path.emplace(m_file.path());
        tellOfOlderLibrary();
        m_pMutex = std::make_unique<CPMutex>(1, 0, *m_path, 1, 1);
    } catch (const std::bad_alloc&) {
        throwAt(eThrowPoint::eNewMutex);
    }
    if (!m_pMutex->isOpen()) {
        tellOfRefused(kLockKind, m_pMutex->error());
        REGLIB_TRACE(eTraceFlow,
                     "(Error) CRegLibImplFile::CRegLibImplFile (0x%08X), mutex failed, errno %d\n",
                     traceId(m_traced), m_pMutex->error());
        throwAt(eThrowPoint::eNewMutex);
    }
    openBlock();
}

void CSharedState::openBlock() {
    std::unique_ptr<CPSharedMemory> block;
    try {
        block = std::make_unique<CPSharedMemory>(*m_path, sizeof(std::uint64_t));
    } catch (const std::bad_alloc&) {
        throwAt(eThrowPoint::eNewSharedMemory);
    }
    if (!block->getAddress()) {
        tellWhyNoBlock(block->error());
        REGLIB_TRACE(
            eTraceFlow,
            "(Error) CRegLibImplFile::CRegLibImplFile (0x%08X), shared memory failed, errno %d\n",
            traceId(m_traced), block->error());
        throwAt(eThrowPoint::eNewSharedMemory);
    }
    m_lastLook = CPortable::GetSecondShown();
    useBlock(std::move(block));
}

// Older versions of the library have their lock in a mapped object of another name: a process with
// one of them and this one do not see each other's locks, nor each other's changes in time.
void CSharedState::tellOfOlderLibrary() const try {
    const std::string lock = objectPath(kOlderLockKind, *m_path);
    const std::int32_t process = processThatMaps(lock.c_str());
    if (process != 0) {
        REGLIB_TRACE(eTraceAlways,
                     "(Error) CRegLibImplFile::CRegLibImplFile (0x%08X), process %d has an older "
                     "version of the library, which does not respect this one's lock: restart it\n",
                     traceId(m_traced), process);
    }
} catch (const std::bad_alloc&) {
    return;  // the store does not need it
}

void CSharedState::closeStamp() {
    m_pSharedMemory.reset();
    m_pullSharedChangeStamp = nullptr;
}

void CSharedState::closeLock() {
    m_pMutex.reset();
}

// Whoever comes in first looks whether everything is as it should be.
int CSharedState::takeLock(unsigned long milliseconds) {
    const bool isFirst = !m_pMutex->isHeldHere();
    const CPMutex::eWaitResult waited = m_pMutex->wait(milliseconds, nullptr);
    if (waited != CPMutex::eOwned) {
        const bool lacksMemory = waited == CPMutex::eFailed && m_pMutex->error() == ENOMEM;
        if (waited == CPMutex::eFailed && isRefused(m_pMutex->error()) &&
            isTimeToTell(m_lockTold)) {
            tellOfRefused(kLockKind, m_pMutex->error());
        }
        return lacksMemory ? REGLIB_E_FAIL : REGLIB_E_FILE_OPEN;
    }
    if (!isFirst) {
        return REGLIB_OK;
    }
    bool isHeld = false;
    const CAtEnd letGo([&] {
        if (!isHeld) {
            (void)release();  // held here
        }
    });
    isHeld = isUsable(milliseconds == 0 ? CPSharedMemory::eTry : CPSharedMemory::eWait);
    return isHeld ? REGLIB_OK : REGLIB_E_FILE_OPEN;
}

// Somebody may have written the old number over a new stamp, to make a change undo another: so each
// stamp is left beside the lock as well. There it may be that of another block, which is either one
// that is gone, or the one that all others use by now.
bool CSharedState::isUsable(CPSharedMemory::eHow how) {
    if (!hasBlock(how)) {
        return false;
    }
    const CPMutex::Counter counter = m_pMutex->counter();
    if (counter.tag == m_pSharedMemory->tag()) {
        if (counter.number != m_ullLocalChangeStamp) {
            m_ullLocalChangeStamp = 0;
        }
    } else if (counter.tag != 0) {
        m_pSharedMemory->distrust();
        if (!hasBlock(how)) {
            return false;
        }
    }
    if (isReplacing(stamp())) {
        // Its maker may be alive, where a lock's object was removed: this one, or the one before it, when
        // this one has never seen a change.
        if (!m_pMutex->isStillHeld() || (counter.tag == 0 && !outlivesMark(how))) {
            return false;
        }
        // The mark beside the lock is its maker's, too; it stays where nothing can be done now.
        m_pMutex->setMark(!m_file.recover());
        renew();
    }
    return true;
}

// True when the mark has stayed for so long that its maker must be dead, or has gone.
bool CSharedState::outlivesMark(CPSharedMemory::eHow how) const {
    if (how == CPSharedMemory::eTry) {
        return !isReplacing(stamp());
    }
    const std::uint64_t begun = CPortable::GetTickCountULL();
    while (isReplacing(stamp()) && CPortable::GetTickCountULL() - begun < kMarkNanoseconds) {
        CPortable::Sleep(1);
    }
    return true;
}

int CSharedState::release() {
    return m_pMutex->release();
}

// Later than any stamp before, whatever the clock does, even, and never 0: that is the stamp of a
// store that has not read its file yet.
std::uint64_t CSharedState::nextStamp() const {
    return stampAfter(stamp(), CPortable::GetTickCountULL());
}

std::uint64_t CSharedState::renew() {
    const std::uint64_t next = nextStamp();
    (void)m_pMutex->putCounter({next, m_pSharedMemory->tag()});  // a hint to later holders, no more
    m_pullSharedChangeStamp->store(next, std::memory_order_release);
    return next;
}

void CSharedState::publish() {
    m_pullSharedChangeStamp->store(m_nextStamp, std::memory_order_release);
    m_ullLocalChangeStamp = m_nextStamp;
    // Others may have got another block meanwhile; they shall hear of it too.
    if (!m_pSharedMemory->isCurrent() && hasBlock(CPSharedMemory::eTry)) {
        m_ullLocalChangeStamp = renew();
    }
}

// A full barrier, because the mark must be seen before the first of the renames is. A mark of its own, also
// where there is one: that is of somebody whose lock was removed, and who takes it back; or who still
// replaces the file, when this one's was.
std::uint64_t CSharedState::markReplacing(std::uint64_t& before) {
    before = stamp();
    std::uint64_t mark = 0;
    do {
        mark = isReplacing(before) ? before + 2 : before | kReplacing;
    } while (!m_pullSharedChangeStamp->compare_exchange_weak(before, mark));
    return mark;
}

// A program that has closed all descriptors has let go of the lock. The new number is put beside the
// lock before: should this process die in between, it costs the others no more than one reading. The lock
// is looked at once more behind the mark: if its object is removed only after that, whoever makes another
// one sees the mark, and waits (outlivesMark).
int CSharedState::replace(const std::string& temporary) {
    m_nextStamp = nextStamp();
    if (!m_pMutex->putCounter({m_nextStamp, m_pSharedMemory->tag()})) {
        return REGLIB_E_FILE_OPEN;
    }
    std::uint64_t before = 0;
    std::uint64_t mark = markReplacing(before);
    if (!m_pMutex->isStillHeld()) {
        m_pullSharedChangeStamp->compare_exchange_strong(
            mark, isReplacing(before) ? before : stampAfter(mark, m_nextStamp));
        return REGLIB_E_FILE_OPEN;
    }
    if (!m_file.replaceAtOnce(temporary.c_str())) {
        // The mark outlives everybody, unlike the stamp.
        m_pMutex->setMark(true);
        m_file.replaceInSteps(temporary.c_str());
        m_pMutex->setMark(!m_file.recover());
    }
    return REGLIB_OK;
}

bool CSharedState::recoverAbsent() {
    if (CFileOps::current().exists(m_file.path()) || !m_pMutex->isMarked()) {
        return true;
    }
    const bool isRecovered = m_file.recover();
    m_pMutex->setMark(!isRecovered);
    return isRecovered;
}

// The stamp of a new block is 0 until the first of its users gives it one.
void CSharedState::useBlock(std::unique_ptr<CPSharedMemory> block) {
    m_pSharedMemory = std::move(block);
    m_pullSharedChangeStamp =
        static_cast<std::atomic<std::uint64_t>*>(m_pSharedMemory->getAddress());
    std::uint64_t none = 0;
    m_pullSharedChangeStamp->compare_exchange_strong(none,
                                                     stampAfter(0, CPortable::GetTickCountULL()));
    m_ullLocalChangeStamp = 0;
}

// False when somebody has removed the block, or put another one in its place, and it cannot be had.
// Who only reads does not wait for who is just making one: until that is done, the old one is as good.
bool CSharedState::hasBlock(CPSharedMemory::eHow how) {
    const CNoCancellation noCancellation;
    m_lastLook = CPortable::GetSecondShown();
    if (m_pSharedMemory->isCurrent()) {
        return true;
    }
    auto block = std::make_unique<CPSharedMemory>(*m_path, sizeof(std::uint64_t), how);
    if (how == CPSharedMemory::eTry && block->error() == EAGAIN) {
        return true;
    }
    if (!block->getAddress()) {
        tellWhyNoBlock(block->error());
        m_lastLook = kNeverLooked;
        m_ullLocalChangeStamp = 0;
        return false;
    }
    useBlock(std::move(block));
    return true;
}

// What somebody has put in an object's place keeps the store from everybody until it is removed: an
// administrator has to hear of it, and whose it is.
void CSharedState::tellOfRefused(const char* kind, int error) const try {
    const std::string object = objectPath(kind, *m_path);
    const long user = CSharedFile::userOf(object);
    if (isRefused(error) && user >= 0) {
        REGLIB_TRACE(
            eTraceAlways,
            "(Error) CRegLibImplFile::Lock (0x%08X), \"%s\" cannot be used, errno %d, it is "
            "of user %ld\n",
            traceId(m_traced), object.c_str(), error, user);
    }
} catch (const std::bad_alloc&) {
    return;  // whoever needs the object learns that it cannot be had
}

// True at first and when a minute has passed since.
bool CSharedState::isTimeToTell(std::uint32_t& told) {
    const std::uint32_t now = CPortable::GetSeconds();
    if (told != 0 && now - told < kComplaintSeconds) {
        return false;
    }
    told = now;
    return true;
}

// Of other namespaces an administrator has to hear; the rest is for who looks for it, and it is told
// again when a minute has passed.
void CSharedState::tellWhyNoBlock(int error) {
    if (!isTimeToTell(m_blockTold)) {
        return;
    }
    tellOfRefused(kBlockKind, error);
    if (error == EXDEV) {
        REGLIB_TRACE(eTraceAlways,
                     "(Error) CRegLibImplFile::Lock (0x%08X), \"%s\" is in use in another IPC "
                     "namespace\n",
                     traceId(m_traced), m_file.path());
    }
    REGLIB_TRACE(eTraceFlow,
                 "(Error) CRegLibImplFile::Lock (0x%08X), shared memory failed, errno %d\n",
                 traceId(m_traced), error);
}

void CSharedState::complainOfStopped(std::uint64_t stamp) {
    const std::uint32_t now = CPortable::GetSeconds();
    if (stamp != m_oddStamp) {
        m_oddStamp = stamp;
        m_oddSince = now;
    } else if (now - m_oddSince >= kComplaintSeconds) {
        m_oddSince = now;
        REGLIB_TRACE(eTraceAlways,
                     "(Error) CRegLibImplFile::ImportConfig (0x%08X), a writer of \"%s\" has been "
                     "stopped\n",
                     traceId(m_traced), m_file.path());
    }
}

}  // namespace VQRegLib
