// Named objects that all processes of the machine share: how they are named, made and opened.
#ifndef PORTABLE_SHAREDOBJECT_H
#define PORTABLE_SHAREDOBJECT_H

#include <sys/types.h>

#include <cstddef>
#include <string>

namespace VQRegLib {

// A path as the names of shared objects have it: its directory is resolved, so that every spelling of
// it is one. Make it once where several objects stand for a file.
class CSharedPath {
public:
    CSharedPath(const std::string& path);
    CSharedPath(const char* path) : CSharedPath(std::string(path)) {}
    const std::string& text() const { return m_text; }

private:
    std::string m_text;
};

class CSharedObject {
public:
    // Where the objects live.
    static const char* directory();

    // The name of the object of this kind that stands for a file. Injective up to the 255 bytes of a
    // file name; a longer name ends in a 128-bit hash.
    static std::string nameForPath(const std::string& kind, const CSharedPath& path);

    // 128 bits of a text, in 32 hexadecimal digits.
    static std::string hashOf(const std::string& text);

    CSharedObject() = default;
    ~CSharedObject();  // unmaps
    CSharedObject(const CSharedObject&) = delete;
    CSharedObject& operator=(const CSharedObject&) = delete;

    // Maps the object of that name, making it when it is missing. A new object is filled by
    // `initialise` and gets its name only afterwards: nobody sees an unfinished one. Everybody may
    // read and write it. An existing object that is not a regular file of exactly this size is
    // refused. Returns 0 or an errno.
    int open(const std::string& name, std::size_t size, int (*initialise)(void*));

    // Keeps the mapping for the rest of the process.
    void leak() { m_address = nullptr; }

    void* address() const { return m_address; }
    bool isCreator() const { return m_creator; }
    ino_t inode() const { return m_inode; }

private:
    int openExisting(const std::string& path);
    int create(const std::string& path, int (*initialise)(void*));
    int map(int fd);
    void unmap();

    void* m_address = nullptr;
    std::size_t m_size = 0;
    ino_t m_inode = 0;
    bool m_creator = false;
};

}  // namespace VQRegLib

#endif  // PORTABLE_SHAREDOBJECT_H
