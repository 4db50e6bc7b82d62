// A signal that comes while a named object gets its memory. In an executable of its own, because it
// replaces the call that the signal interrupts.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "portable/ObjectName.h"
#include "portable/SharedFile.h"
#include "portable/SharedObject.h"
#include "support/TempStore.h"

using namespace VQRegLib;

namespace {

int g_interruptions = 0;

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker gives them
extern "C" {
int __real_posix_fallocate(int fd, off_t offset, off_t size);
int __wrap_posix_fallocate(int fd, off_t offset, off_t size);

int __wrap_posix_fallocate(int fd, off_t offset, off_t size) {
    return g_interruptions-- > 0 ? EINTR : __real_posix_fallocate(fd, offset, size);
}
}
// NOLINTEND(bugprone-reserved-identifier)

TEST(InterruptedObject, GetsItsMemoryAfterTheSignal) {
    const vqtest::TempStore place;
    const std::string name = objectName(kLockKind, CSharedPath(place.path().c_str()));
    g_interruptions = 2;
    EXPECT_EQ(CSharedFile::make(name, 8), 0);
    g_interruptions = 2;
    CSharedObject object;
    EXPECT_EQ(object.open(objectName(kBlockKind, CSharedPath(place.path().c_str())), 8, nullptr),
              0);
    EXPECT_TRUE(object.isCreator());
}
