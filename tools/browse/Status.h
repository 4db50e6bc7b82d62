// Who else has to do with the store, for the status line.
#ifndef TOOLS_BROWSE_STATUS_H
#define TOOLS_BROWSE_STATUS_H

#include <sys/types.h>

#include <chrono>
#include <string>

namespace vqreg {

// " | lock: free | open in: 27846 (heaterd)", behind the file. Looked at again by and by: the processes are found by
// looking at all there are, which takes its time where there are many.
class Status {
public:
    explicit Status(std::string file) : m_file(std::move(file)) {}

    // But for a process that writes for this one; 0 for none.
    void refresh(bool isWanted, pid_t writer);
    const std::string& file() const { return m_file; }
    const std::string& text() const { return m_text; }
    // Empty for none.
    const std::string& openers() const { return m_openers; }

private:
    using Clock = std::chrono::steady_clock;

    const std::string m_file;
    std::string m_text;
    std::string m_openers;
    std::string m_allOpeners;
    Clock::time_point m_nextLook;
};

}  // namespace vqreg

#endif  // TOOLS_BROWSE_STATUS_H
