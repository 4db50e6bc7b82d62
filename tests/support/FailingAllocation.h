// Allocations that fail on order. Tests that use it link FailingAllocation.cpp, which replaces operator
// new, into an executable of their own.
#ifndef VQTEST_FAILING_ALLOCATION_H
#define VQTEST_FAILING_ALLOCATION_H

namespace vqtest {

/// While it lives, one allocation by operator new fails: the one after so many others. Only one, so
/// that what cleans up after it may allocate. Use it from one thread, one at a time.
class FailingAllocation {
public:
    explicit FailingAllocation(long succeeding);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    /// Whether it came to that allocation. None fails after the question.
    bool hasFailed();
};

/// Blocks of operator new that have not been given back.
long allocatedBlocks();

/// No allocation fails or counts while it lives.
class UnlimitedAllocation {
public:
    UnlimitedAllocation();
    ~UnlimitedAllocation();
    UnlimitedAllocation(const UnlimitedAllocation&) = delete;
    UnlimitedAllocation& operator=(const UnlimitedAllocation&) = delete;

private:
    const long m_left;
};

}  // namespace vqtest

#endif  // VQTEST_FAILING_ALLOCATION_H
