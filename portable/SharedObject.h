// Named objects that all processes of the machine share: how they are made and opened.
#ifndef PORTABLE_SHAREDOBJECT_H
#define PORTABLE_SHAREDOBJECT_H

#include <sys/types.h>

#include <cstddef>
#include <string>

namespace VQRegLib {

class CSharedObject {
public:
    CSharedObject() = default;
    ~CSharedObject();  // unmaps
    CSharedObject(const CSharedObject&) = delete;
    CSharedObject& operator=(const CSharedObject&) = delete;

    // Maps the object of that name, making it when it is missing. A new object is filled by
    // `initialise` and gets its name only afterwards: nobody sees an unfinished one. Everybody may
    // read and write it. An existing object that is not a regular file of exactly this size is
    // refused. Returns 0 or an errno.
    [[nodiscard]] int open(const std::string& name, std::size_t size, int (*initialise)(void*));

    // Keeps the mapping for the rest of the process.
    void leak() { m_address = nullptr; }

    void* address() const { return m_address; }
    bool isCreator() const { return m_creator; }
    ino_t inode() const { return m_inode; }

private:
    [[nodiscard]] int openExisting(const std::string& path);
    [[nodiscard]] int create(const std::string& path, int (*initialise)(void*));
    [[nodiscard]] int map(int fd);
    void unmap();

    void* m_address = nullptr;
    std::size_t m_size = 0;
    ino_t m_inode = 0;
    bool m_creator = false;
};

}  // namespace VQRegLib

#endif  // PORTABLE_SHAREDOBJECT_H
