// Who changes a store while the power is cut.
#ifndef VQTORTURE_POWER_WRITER_H
#define VQTORTURE_POWER_WRITER_H

#include <atomic>
#include <cstdint>
#include <string>

#include "support/ForkedChild.h"
#include "support/Torture.h"

namespace vqtorture {

/// How a new text takes the place of the old one (RegLib/file/ConfigFile.h).
enum class Way { eLink, eExchange, eRenames };

struct Progress {
    std::atomic<std::uint32_t> begun{0};         ///< changes of which the call has begun
    std::atomic<std::uint32_t> acknowledged{0};  ///< of which it has returned REGLIB_OK
};

/// The file after so many changes. Its length is another one after each of them, and more than a page.
std::string textAfter(std::uint32_t changes);

/// Which of the texts that is, or -1: none of them whole.
std::int64_t changesIn(const std::string& text);

/// Changes the store of a file until it is killed, or a change fails.
class Writer {
public:
    Writer(const std::string& file, std::uint32_t changes, Way way, bool isSynced);

    /// Until it has done so many changes; at most for some seconds.
    void awaitChanges(std::uint32_t count);

    Progress& progress() { return *m_progress; }
    void kill() { m_child.kill(); }

private:
    vqtest::Common<Progress> m_progress;
    vqtest::ForkedChild m_child;
};

/// Brings other files of the file system to the disk now and then, as other programs do: that is when a
/// file system writes its journal.
class Bystander {
public:
    Bystander(const std::string& directory, std::uint64_t seed);
    void kill() { m_child.kill(); }

private:
    vqtest::ForkedChild m_child;
};

/// Opens the store of a file in a process of its own and changes it. True when that works.
bool isUsable(const std::string& file);

}  // namespace vqtorture

#endif  // VQTORTURE_POWER_WRITER_H
