// What the store does to files, as one replaceable object: tests put a failing disk in its place.
#ifndef PORTABLE_FILEOPS_H
#define PORTABLE_FILEOPS_H

#include <cstdint>
#include <cstdio>

namespace VQRegLib {

class CFileOps {
public:
    virtual ~CFileOps() = default;

    // The object in use; never null.
    static CFileOps& current();
    // Puts another one in its place; null brings back the system's. For tests, before any use.
    static void replace(CFileOps* fileOps);

    // Both opens give unbuffered files: the store moves its text in large blocks of its own.

    // Opens an existing regular file. Anything else, a FIFO or a device, is refused without waiting
    // for it. Null and errno on failure.
    virtual std::FILE* openForReading(const char* path);

    // Makes a new file, readable and writable by everybody as far as the umask allows. Fails with
    // ENOSPC, leaving no file, when the file system has no room for `size` bytes: a write would
    // fail half-way and unseen.
    virtual std::FILE* createForWriting(const char* path, std::uint64_t size);

    // As fread, fwrite, fflush and fclose; wrong counts and EOF with errno on failure.
    virtual std::size_t read(void* buffer, std::size_t size, std::FILE* file);
    virtual std::size_t write(const void* data, std::size_t size, std::FILE* file);
    virtual int flush(std::FILE* file);
    virtual int close(std::FILE* file);

    // As the system calls of these names.
    virtual int makeWritableForAll(const char* path);  // chmod 0666
    virtual int unlink(const char* path);
    virtual int link(const char* path, const char* newPath);
    virtual int rename(const char* path, const char* newPath);
    virtual bool exists(const char* path);
};

}  // namespace VQRegLib

#endif  // PORTABLE_FILEOPS_H
