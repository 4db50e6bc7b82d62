#include "portable/SharedMemory.h"

namespace VQRegLib {

CPSharedMemory::CPSharedMemory(const std::string& path, unsigned long size)
    : m_nError(m_object.open(CSharedObject::nameForPath("CPSharedMemory", path), size, nullptr)) {}

}  // namespace VQRegLib
