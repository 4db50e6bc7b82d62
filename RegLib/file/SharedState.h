// What the processes that use one configuration file share: its lock and its change stamp.
#ifndef REGLIB_FILE_SHAREDSTATE_H
#define REGLIB_FILE_SHAREDSTATE_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "portable/Mutex.h"
#include "portable/Portable.h"
#include "portable/SharedMemory.h"

namespace VQRegLib {

class CConfigFile;

// SharedState.cpp explains the protocol. Used by one thread at a time.
class CSharedState {
public:
    static constexpr unsigned long kInfinite = CPMutex::kInfinite;

    // `traced`: whose address the trace lines bear.
    CSharedState(const void* traced, CConfigFile& file) : m_traced(traced), m_file(file) {}

    // Opens lock and stamp of the file, whose path is set, or throws VQException. They are closed one
    // by one.
    void open();
    void closeStamp();
    void closeLock();

    // Takes the lock, and makes good what a dead holder has left behind. REGLIB_E_FILE_OPEN when it
    // cannot be had in so many milliseconds, REGLIB_E_FAIL without memory. Its holder may take it again.
    [[nodiscard]] int takeLock(unsigned long milliseconds);
    [[nodiscard]] int release();

    bool isHeldHere() const { return m_pMutex->isHeldHere(); }

    // The calling thread holds it through another store of this process on the same file.
    bool isHeldThroughAnother() const { return m_pMutex->isHeldThroughAnother(); }

    // For a holding that may take long, so that people can be told of it.
    void noteHolding() const { m_pMutex->noteHolding(); }

    // In a child of fork: what the parent holds is not the child's.
    void forgetInherited() { m_pMutex->forgetInherited(); }

    // Whoever has read or written the file under the remembered stamp has all changes that were
    // completed by now. Whether the block still is the one that others use is looked at once a second:
    // often enough for who removes it, too seldom to be felt.
    bool isUpToDate() {
        if (CPortable::GetSecondShown() != m_lastLook && !hasBlock(CPSharedMemory::eTry)) {
            return false;
        }
        const std::uint64_t shared = stamp();
        return shared != 0 && shared == m_ullLocalChangeStamp;  // 0: somebody has written over it
    }

    // The stamp cannot be had: nobody would learn of another process's changes.
    bool isStampLost() const { return m_lastLook == kNeverLooked; }

    std::uint64_t stamp() const { return m_pullSharedChangeStamp->load(std::memory_order_acquire); }
    static bool isReplacing(std::uint64_t stamp) { return (stamp & 1) != 0; }

    // Remembers the stamp under which the file was read; 0 remembers none.
    void adopt(std::uint64_t stamp) { m_ullLocalChangeStamp = stamp; }

    // With the lock held. Gives the stamp a new number, which it returns: everybody reads the file
    // at the next operation. publish() is for who has written the file, and has no need to read it.
    std::uint64_t renew();
    void publish();

    // With the lock held: puts a finished text in the file's place. REGLIB_E_FILE_OPEN when the lock
    // has got lost; nothing is done then.
    [[nodiscard]] int replace(const std::string& temporary);

    // As a replacement does before it touches a name. The mark, an odd stamp.
    std::uint64_t markReplacing(std::uint64_t& before);

    // With the lock held, and without a file: puts the backup back if a writer has died where the
    // path was absent. False when that fails: the text is the backup's, and none is to be made instead.
    [[nodiscard]] bool recoverAbsent();

    // An error line once a minute about a stamp that stays odd.
    void complainOfStopped(std::uint64_t stamp);

private:
    friend class CFileStoreProbe;  // tests look inside

    std::uint64_t nextStamp() const;
    [[nodiscard]] bool isUsable(CPSharedMemory::eHow how);
    bool outlivesMark(CPSharedMemory::eHow how) const;
    void openBlock();
    void tellOfOlderLibrary() const;
    void useBlock(std::unique_ptr<CPSharedMemory> block);
    [[nodiscard]] bool hasBlock(CPSharedMemory::eHow how);
    void tellWhyNoBlock(int error);
    void tellOfRefused(const char* kind, int error) const;
    static bool isTimeToTell(std::uint32_t& told);

    static constexpr std::uint32_t kNeverLooked = 0xFFFFFFFF;

    const void* const m_traced;
    CConfigFile& m_file;
    std::optional<CSharedPath> m_path;
    std::unique_ptr<CPMutex> m_pMutex;
    std::unique_ptr<CPSharedMemory> m_pSharedMemory;
    std::atomic<std::uint64_t>* m_pullSharedChangeStamp = nullptr;
    std::uint64_t m_ullLocalChangeStamp = 0;
    std::uint64_t m_nextStamp = 0;  // of the replacement that is under way
    static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

    std::uint32_t m_lastLook = kNeverLooked;  // at the block; kNeverLooked also when it is lost
    std::uint32_t m_blockTold = 0;            // when an error line said that it cannot be had
    std::uint32_t m_lockTold = 0;             // likewise
    std::uint64_t m_oddStamp = 0;
    std::uint32_t m_oddSince = 0;
};

}  // namespace VQRegLib

#endif  // REGLIB_FILE_SHAREDSTATE_H
