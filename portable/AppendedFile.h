// A file that the processes of all users append lines to, such as a log.
#ifndef PORTABLE_APPENDEDFILE_H
#define PORTABLE_APPENDEDFILE_H

#include <sys/types.h>

#include <atomic>
#include <cstdio>

namespace VQRegLib {

// Knows the descriptor of such a file that is open, and what was behind it: a program that closes all
// descriptors may have given the number to a file of its own. Any thread may ask; one at a time may
// call what changes something.
class CAppendedFile {
public:
    // Opens the file, and makes it, for everybody, when it is missing. Null when it cannot be had, when
    // it is no regular file or has a second name, and when another user has it who has not opened it to
    // everybody. The stream keeps nothing back.
    [[nodiscard]] static std::FILE* open(const char* path);

    // The stream's descriptor is the one from now on.
    void remember(std::FILE* file);

    // Puts a file under the descriptor in place of the one that is there, and closes its own stream:
    // who writes meanwhile writes to the one or to the other. False, and nothing is done, when the
    // system refuses.
    [[nodiscard]] bool replaceBy(std::FILE* opened);

    // The descriptor is still that of the file.
    bool isThere() const { return isThere(m_descriptor.load()); }

    // It is, and the stream has that descriptor.
    bool isThereFor(std::FILE* file) const;

private:
    bool isThere(int descriptor) const;
    void rememberDescriptor(int descriptor);

    std::atomic<int> m_descriptor{-1};
    std::atomic<dev_t> m_device{0};
    std::atomic<ino_t> m_inode{0};
};

}  // namespace VQRegLib

#endif  // PORTABLE_APPENDEDFILE_H
