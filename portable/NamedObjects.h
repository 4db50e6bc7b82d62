// Lists the named objects of the machine.
#ifndef PORTABLE_NAMEDOBJECTS_H
#define PORTABLE_NAMEDOBJECTS_H

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

private:
    std::vector<std::string> m_names;
};

}  // namespace VQRegLib

#endif  // PORTABLE_NAMEDOBJECTS_H
