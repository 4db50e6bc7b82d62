// Tells the process that made an object from children that have inherited it by fork.
#ifndef PORTABLE_PROCESSMARK_H
#define PORTABLE_PROCESSMARK_H

#include <cstdint>

namespace VQRegLib {

// The process id alone would not do: a child in a new pid namespace may have that of its parent.
class CProcessMark {
public:
    CProcessMark();  // marks the calling process

    bool isOfThisProcess() const;

    // How often the program has forked on the way to this process, from the first call on.
    static std::uint32_t forks();

private:
    long m_pid;
    std::uint32_t m_forks;  // that lead from the first process of the program to this one
};

}  // namespace VQRegLib

#endif  // PORTABLE_PROCESSMARK_H
