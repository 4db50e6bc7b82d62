// Lists the named objects of the machine.
#ifndef PORTABLE_NAMEDOBJECTS_H
#define PORTABLE_NAMEDOBJECTS_H

#include <sys/types.h>
#include <time.h>

#include <string>
#include <vector>

namespace VQRegLib {

// The semaphores whose names begin with a prefix, as they are when the object is made.
class CPEnumNamedObjects {
public:
    static constexpr int kSemaphores = 0;  // the only type there is

    CPEnumNamedObjects(const std::string& prefix, int type);

    // 1 with the whole name of the object at this index, counted from 0; 0 past the last.
    int enumNamedObject(int index, std::string* name, int* type) const;

    // False when the directory could not be read to its end, for want of descriptors or memory for example.
    bool isComplete() const { return m_isComplete; }

private:
    void look(const std::string& prefix);

    std::vector<std::string> m_names;
    bool m_isComplete = false;
};

// The names in the objects' directory as they are at a moment, by the directory's change time.
class CNamesMark {
public:
    CNamesMark() = default;  // of no moment
    static CNamesMark now();

    // True when no name can have come or gone since an earlier mark was taken.
    bool isUnchangedSince(const CNamesMark& earlier) const;

private:
    dev_t m_device = 0;
    ino_t m_inode = 0;
    timespec m_changed{};
    // Changes within a tick of the kernel's clock bear the same time: until it has passed, one may
    // follow that cannot be told from the last.
    bool m_isSettled = false;
};

}  // namespace VQRegLib

#endif  // PORTABLE_NAMEDOBJECTS_H
