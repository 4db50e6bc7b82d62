// Calls of the system that fail on order. Tests that use it link FailingCalls.cpp into an executable of
// their own, with -Wl,--wrap of each function that it names.
#ifndef VQTEST_FAILING_CALLS_H
#define VQTEST_FAILING_CALLS_H

#include <climits>
#include <string>

namespace vqtest {

/// While it lives, calls of that function fail with that errno and do nothing: so many, after so many
/// others that succeed. Without an errno they do nothing and say that they have done it. Several may live
/// at a time, destroyed in the reverse order. Use them from one thread.
class FailingCall {
public:
    FailingCall(const char* function, int error, int skip = 0, int times = INT_MAX);
    ~FailingCall();
    FailingCall(const FailingCall&) = delete;
    FailingCall& operator=(const FailingCall&) = delete;

    int count() const { return m_count; }  ///< how many have failed

    /// Whether a call of the function fails now, and with what.
    static bool fails(const char* function, int& error);

private:
    const std::string m_function;
    const int m_error;
    int m_skip;
    int m_times;
    int m_count = 0;
    FailingCall* const m_outer;
};

/// How many descriptors were opened so far that a program started meanwhile would have got.
int descriptorsHandedOn();

/// While it lives, every file system has room for so many blocks: for everybody, and for root. One whose
/// blocks have no size does not tell how large it is.
class KnownRoom {
public:
    KnownRoom(unsigned long forAll, unsigned long forRoot, unsigned long blockSize = 4096);
    ~KnownRoom();
    KnownRoom(const KnownRoom&) = delete;
    KnownRoom& operator=(const KnownRoom&) = delete;
};

}  // namespace vqtest

#endif  // VQTEST_FAILING_CALLS_H
