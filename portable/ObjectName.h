// How the objects are named that all processes of the machine share, and what lies in them. Pure: who
// only wants to look at them needs no more.
#ifndef PORTABLE_OBJECTNAME_H
#define PORTABLE_OBJECTNAME_H

#include <cstdint>
#include <string>

namespace VQRegLib {

// Where the objects live.
constexpr char kObjectDirectory[] = "/dev/shm";

// The kinds of objects that stand for a file, and those of older versions of the library.
constexpr char kLockKind[] = "CPLock";
constexpr char kBlockKind[] = "CPBlock";
constexpr char kOlderLockKind[] = "CPMutex";
constexpr char kOlderBlockKind[] = "CPSharedMemory";

// A path as the names of shared objects have it: its directory is resolved, so that every spelling of
// it is one. Make it once where several objects stand for a file.
class CSharedPath {
public:
    CSharedPath(const std::string& path);
    CSharedPath(const char* path) : CSharedPath(std::string(path)) {}
    const std::string& text() const { return m_text; }

    // Why the directory could not be resolved, as an errno: no memory, or a disk that fails. The text may
    // be another one than everybody else's then, and so would be the objects.
    int error() const { return m_error; }

private:
    int m_error = 0;  // before the text, which sets it
    std::string m_text;
};

// The name of the object of this kind that stands for a file. Injective up to the 255 bytes of a file
// name; a longer name ends in a 128-bit hash.
std::string objectName(const std::string& kind, const CSharedPath& path);

// The path of the file of that name, and of that of an object.
std::string objectFile(const std::string& name);
std::string objectPath(const std::string& kind, const CSharedPath& path);

// What sem_open puts before a semaphore's name to have that of its file.
constexpr char kSemaphoreFilePrefix[] = "sem.";

// 128 bits of a text, in 32 hexadecimal digits.
std::string hash128(const std::string& text);

// What the file of a lock holds: nothing that anybody relies on.
struct CHolderNote {
    std::int64_t pid;
    std::int64_t sinceSec;
    std::int64_t mark;
    std::uint64_t counter;
    std::uint64_t counterTag;
};
static_assert(sizeof(CHolderNote) == 40);  // as in processes of another word size

constexpr char kBlockTag[8] = {'C', 'P', 'B', 'l', 'o', 'c', 'k', '1'};

// What the file of a block holds: where the segment is.
struct CBlockRecord {
    char tag[8];
    std::uint64_t ipcNamespace;
    std::int64_t id;
    unsigned char lot[16];
};
static_assert(sizeof(CBlockRecord) == 40);

// The beginning of the segment. 64 bytes, so that the block begins at a cache line.
struct CBlockHeader {
    char tag[8];
    std::uint64_t size;
    unsigned char lot[16];
    char name[32];  // the hash of the name
};
static_assert(sizeof(CBlockHeader) == 64);

}  // namespace VQRegLib

#endif  // PORTABLE_OBJECTNAME_H
