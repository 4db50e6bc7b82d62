// What processes are killed at, or stopped.
#ifndef VQTORTURE_KILL_DEEDS_H
#define VQTORTURE_KILL_DEEDS_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kill/Content.h"

namespace vqtorture {

enum class Deed { eSet, eUpdate, eOpen, eRegister };

constexpr Deed kDeeds[] = {Deed::eSet, Deed::eUpdate, Deed::eOpen, Deed::eRegister};

const char* nameOf(Deed deed);

/// How far a process has come, in memory that outlives it.
struct Progress {
    std::atomic<std::uint32_t> begun{0};  ///< the number that it is about to write
    std::atomic<std::uint32_t> done{0};   ///< the last one that was acknowledged with REGLIB_OK
    std::atomic<int> failure{0};          ///< the first result that was not
    std::atomic<bool> isReady{false};     ///< what follows may be killed
};

/// Does one deed again and again, in the process that is to die.
class Doer {
public:
    Doer(Deed deed, std::string path, Progress& progress);

    /// All that comes before the deed: for most, the session.
    void prepare();

    /// Once, with the next number. False when the library refused anything.
    bool once();

private:
    int set();
    int update();
    int open();
    int registration();

    const Deed m_deed;
    const std::string m_path;
    Progress& m_progress;
    std::unique_ptr<vqtest::CRegLib> m_session;
    std::vector<std::unique_ptr<vqtest::CRegKey>> m_parts;
    std::vector<std::unique_ptr<vqtest::CRegLib>> m_opened;
};

}  // namespace vqtorture

#endif  // VQTORTURE_KILL_DEEDS_H
