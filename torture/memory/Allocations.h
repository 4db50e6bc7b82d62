// Memory that gives out by plan, for the whole process: the library, the C++ and the C library. Allocation
// functions of the program come before those of the C library, which calls them, too.
//
// Blocks are counted as well: as many as were taken must have been given back when all is closed.
#ifndef VQTORTURE_MEMORY_ALLOCATIONS_H
#define VQTORTURE_MEMORY_ALLOCATIONS_H

#include <cstdint>

namespace vqtorture {

/// Whose requests are counted and refused.
enum class Whose { eEverybodys, eCallers, eOthers };

/// From its construction on the request of that number is refused, and all later ones when it lasts. One at
/// a time; its thread is the caller.
class Shortage {
public:
    Shortage(long succeeding, bool isLasting, Whose whose);
    ~Shortage() { end(); }
    Shortage(const Shortage&) = delete;
    Shortage& operator=(const Shortage&) = delete;

    /// Everything works again. How many requests were refused.
    long end();

    /// How many were granted, as long as no other one has begun.
    long granted() const;

private:
    const long m_succeeding;
};

/// Nothing of this thread is refused or counted while it lives. What it takes meanwhile it should also give
/// back meanwhile.
class Plenty {
public:
    Plenty();
    ~Plenty();
    Plenty(const Plenty&) = delete;
    Plenty& operator=(const Plenty&) = delete;
};

/// Requests are refused at random, one in so many; 0 ends it. How many were refused since the last call.
long refuseAtRandom(std::uint32_t oneIn, std::uint64_t seed);

/// Blocks that this process has taken and not given back.
long liveBlocks();

}  // namespace vqtorture

#endif  // VQTORTURE_MEMORY_ALLOCATIONS_H
