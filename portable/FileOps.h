// What the store does to files, as one replaceable object: tests put a failing disk in its place.
#ifndef PORTABLE_FILEOPS_H
#define PORTABLE_FILEOPS_H

#include <cstdint>
#include <ctime>
#include <span>
#include <string_view>

#include "portable/OpenFile.h"

namespace VQRegLib {

class CFileOps {
public:
    virtual ~CFileOps() = default;

    // The object in use; never null.
    static CFileOps& current();
    // Puts another one in its place; null brings back the system's. For tests, before any use.
    static void replace(CFileOps* fileOps);

    // Opens an existing regular file. Anything else, a FIFO, a device or a symbolic link, is refused
    // without waiting for it. None and errno on failure.
    [[nodiscard]] virtual COpenFile openForReading(const char* path);

    // Makes a new file, readable and writable by everybody as far as the umask allows. Fails with
    // ENOSPC, leaving no file, when the file system has no room for `size` bytes: a write would take
    // the last room, and fail half-way.
    [[nodiscard]] virtual COpenFile createForWriting(const char* path, std::uint64_t size);

    // Both go on where the system stops short, and give the number of bytes that were moved. When that is
    // not all, errno says why; it is 0 where a text that is read ends.
    [[nodiscard]] virtual std::size_t read(void* buffer, std::size_t size, COpenFile& file);
    [[nodiscard]] virtual std::size_t writePieces(std::span<const std::string_view> pieces,
                                                  const COpenFile& file);

    // 0, or -1 with errno. The file is closed in any case.
    [[nodiscard]] virtual int close(COpenFile file);

    // Both give a regular file the mode 0666 unless it has it, and the first one leaves anything else as it
    // is. It never touches what a symbolic link in the path's place leads to: in a directory that others may
    // write, that would open any file to them. 0, or -1 with errno.
    // By the way it learns whether the file holds a text; `holdsText` may be null, and stays as it is
    // when it is no regular file.
    [[nodiscard]] virtual int makeWritableForAll(const char* path, bool* holdsText);
    [[nodiscard]] virtual int makeWritableForAll(const COpenFile& file);

    // As the system calls of these names.
    [[nodiscard]] virtual int unlink(const char* path);
    [[nodiscard]] virtual int link(const char* path, const char* newPath);
    [[nodiscard]] virtual int rename(const char* path, const char* newPath);
    virtual bool exists(const char* path);  // false with errno, which need not be ENOENT

    // Lets two files exchange their names in one step. 0, or -1 with errno.
    [[nodiscard]] virtual int exchange(const char* path, const char* other);

    // Waits until a file's data have been written, though perhaps not past the disk's own cache. 0, or -1
    // with errno when they cannot be written.
    [[nodiscard]] virtual int sendOut(const COpenFile& file);

    // Wait until a file's data, and the names in the directory of a path, are on the disk. 0, or -1 with
    // errno.
    [[nodiscard]] virtual int syncData(const COpenFile& file);
    [[nodiscard]] virtual int syncNames(const char* path);
    // Makes a new file with the text of another one, and waits likewise. Leaves none on failure.
    [[nodiscard]] virtual int copySynced(const char* path, const char* newPath);

    // True for a regular file that has a line with another beginning.
    bool hasLineBeside(const char* path, char beginning) const;

    // When the file behind a path was last written, in whole seconds. It stays as it is on failure.
    void readModificationTime(const char* path, std::time_t& seconds) const;

    // In bytes: as many as there were when it was opened, or as there are now when more have been read.
    std::size_t sizeOf(const COpenFile& file) const;

    // True for a regular file that is not empty.
    bool holdsText(const char* path) const;
};

}  // namespace VQRegLib

#endif  // PORTABLE_FILEOPS_H
