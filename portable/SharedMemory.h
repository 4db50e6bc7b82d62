// A named block of memory that all processes of the machine share.
#ifndef PORTABLE_SHAREDMEMORY_H
#define PORTABLE_SHAREDMEMORY_H

#include <cstdint>
#include <string>

#include "portable/ObjectName.h"
#include "portable/SharedFile.h"

namespace VQRegLib {

struct CBlockRecord;

// The memory is a System V segment, because nobody can shrink one: a mapped file that somebody cuts
// short kills everybody who looks at it. The segment is removed as soon as it is made; it lives on
// while anybody is attached, and others attach by its number, so nothing piles up. The number stands
// in a named file, and what it leads to is checked before it is used: size, tag, name and a number
// drawn by lot. A block holds nothing that a process may rely on as a pointer, a size or an index,
// for everybody may write it.
//
// Segments are numbered by IPC namespace, and processes may share the named file but not the
// namespace (a service with PrivateIPC=, some containers). Who uses the block holds a shared lock on
// the file; while somebody of another namespace does, a block cannot be opened here (EXDEV).
class CPSharedMemory {
public:
    // What to do while somebody else is making the block: wait a little, or give up with EAGAIN.
    enum eHow { eWait, eTry };

    // Opens the block that stands for the path, or makes one of zeroes. `size` in bytes.
    CPSharedMemory(const CSharedPath& path, unsigned long size, eHow how = eWait);
    ~CPSharedMemory();
    CPSharedMemory(const CPSharedMemory&) = delete;
    CPSharedMemory& operator=(const CPSharedMemory&) = delete;

    // Null when the block could not be opened; `error` says why, as an errno.
    void* getAddress() const;
    int isCreator() const { return m_creator ? 1 : 0; }
    int error() const { return m_error; }

    // False when others who open the path now get another block: somebody has removed the named file
    // or written into it.
    bool isCurrent();

    // What isCurrent has found out before counts no more: the next one looks at everything.
    void distrust() { m_checked = {}; }

    // Tells the block from others of the same path; never 0.
    std::uint64_t tag() const;

private:
    [[nodiscard]] int open(unsigned long size, eHow how);
    [[nodiscard]] int attach(unsigned long size);
    [[nodiscard]] int attach(const CBlockRecord& record, unsigned long size);
    std::uint64_t ipcNamespace();
    [[nodiscard]] int make(unsigned long size, eHow how);
    [[nodiscard]] int makeSegment(unsigned long size);
    [[nodiscard]] bool read(CBlockRecord& record) const;
    bool isUnchanged();
    void noteChecked();

    std::string m_name;
    CSharedFile m_file;
    void* m_segment = nullptr;
    int m_id = -1;
    unsigned char m_lot[16] = {};
    std::uint64_t m_ipcNamespace = 0;  // 0: not looked up
    timespec m_checked{};  // of the named file: the change time at which its content was right
    bool m_creator = false;
    int m_error = 0;
};

}  // namespace VQRegLib

#endif  // PORTABLE_SHAREDMEMORY_H
