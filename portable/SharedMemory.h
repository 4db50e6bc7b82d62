// A named block of memory that all processes of the machine share.
#ifndef PORTABLE_SHAREDMEMORY_H
#define PORTABLE_SHAREDMEMORY_H

#include <string>

#include "portable/SharedObject.h"

namespace VQRegLib {

class CPSharedMemory {
public:
    // Opens the block that stands for the path, or makes one of zeroes. `size` in bytes.
    CPSharedMemory(const std::string& path, unsigned long size);

    // Null when the block could not be opened; `error` says why, as an errno.
    void* getAddress() const { return m_object.address(); }
    int isCreator() const { return m_object.isCreator() ? 1 : 0; }
    int error() const { return m_nError; }

private:
    CSharedObject m_object;
    int m_nError;
};

}  // namespace VQRegLib

#endif  // PORTABLE_SHAREDMEMORY_H
