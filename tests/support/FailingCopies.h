// Texts that cannot be copied. Tests that use it link FailingCopies.cpp into an executable of their own,
// with -Wl,--wrap=strdup.
#ifndef VQTEST_FAILING_COPIES_H
#define VQTEST_FAILING_COPIES_H

namespace vqtest {

/// While it lives, so many calls of strdup succeed, then none. Use it from one thread, one at a time.
class CopiesLeft {
public:
    explicit CopiesLeft(int count);
    ~CopiesLeft();
    CopiesLeft(const CopiesLeft&) = delete;
    CopiesLeft& operator=(const CopiesLeft&) = delete;
};

}  // namespace vqtest

#endif  // VQTEST_FAILING_COPIES_H
