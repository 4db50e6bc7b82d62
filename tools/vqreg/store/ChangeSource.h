// When to look at a store's file again.
#ifndef TOOLS_VQREG_STORE_CHANGESOURCE_H
#define TOOLS_VQREG_STORE_CHANGESOURCE_H

#include <chrono>
#include <string>

#include "portable/FileNews.h"

namespace vqreg {

enum class eNews {
    eNone,
    eChange,    // the system has told of one
    eSlowPoll,  // nobody has for a while, which is not always so because there was none
};

// Every new text is another file in the place of the old one: so who only follows a store needs no
// session of the library, and nobody's announcements.
class ChangeSource {
public:
    using Clock = std::chrono::steady_clock;

    // Where the system has nothing that tells of changes, the slow poll is left.
    explicit ChangeSource(const std::string& file);

    // Readable when there may be news; or -1, of which poll takes no notice.
    int descriptor() const { return m_file.descriptor(); }
    // When there is something to do, whatever the descriptor says.
    Clock::time_point nextPoll() const { return m_nextPoll; }

    // What there is to do now. Never waits.
    eNews take();

private:
    VQRegLib::CFileNews m_file;
    Clock::time_point m_nextPoll;
};

// Until a point of time, as poll counts it: a part of a millisecond is one.
int millisecondsUntil(ChangeSource::Clock::time_point time);

}  // namespace vqreg

#endif  // TOOLS_VQREG_STORE_CHANGESOURCE_H
