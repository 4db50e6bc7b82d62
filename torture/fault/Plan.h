// Which call fails, and how.
#ifndef VQTORTURE_FAULT_PLAN_H
#define VQTORTURE_FAULT_PLAN_H

#include <cstddef>
#include <string>

namespace vqtorture {

/// How one call fails.
struct Fault {
    enum class Kind {
        eInstead,  ///< nothing is done
        eAfter,    ///< it is done, and fails all the same: a closing for example
        eHalf,     ///< half of what was asked for
        eOneByte
    };
    int error = 0;
    Kind kind = Kind::eInstead;
};

/// The calls are counted from 0; of the ways in which a call can fail `choice` takes one.
struct Plan {
    std::size_t at = 0;
    bool isLasting = false;  ///< all later ones fail, too
    std::size_t choice = 0;

    bool concerns(std::size_t call) const { return isLasting ? call >= at : call == at; }
};

/// No call can fail in more ways than this: after so many rounds, each with the next choice, it has
/// failed in all of them.
constexpr std::size_t kMostChoices = 7;

inline std::string textOf(const Plan& plan) {
    return "call " + std::to_string(plan.at) + (plan.isLasting ? " and all after it" : "") +
           ", choice " + std::to_string(plan.choice);
}

}  // namespace vqtorture

#endif  // VQTORTURE_FAULT_PLAN_H
