// Waits for keys, news and signals, and gives them to who knows what to do.
#ifndef TOOLS_BROWSE_LOOP_H
#define TOOLS_BROWSE_LOOP_H

#include <chrono>
#include <optional>

#include "portable/FileNews.h"
#include "tools/browse/Browser.h"
#include "tools/browse/Screen.h"
#include "tools/browse/Signals.h"
#include "tools/browse/Status.h"
#include "tools/browse/Writer.h"
#include "tools/vqreg/store/StoreFollower.h"
#include "tools/vqreg/usage/BrowseRequest.h"

namespace vqreg {

class Loop {
public:
    // Throws CommandError for a store that cannot be read, or has no such key.
    Loop(const BrowseRequest& request, const Signals& signals);

    // Until the user ends it, or a signal does, which is returned.
    std::optional<int> run(Screen& screen);

private:
    using Clock = std::chrono::steady_clock;

    void wait();
    std::optional<int> takeSignals(Screen& screen);
    bool takeKeys(Screen& screen);
    void takeEvents();
    void takeWriter();
    void startWriter();
    void readFile(bool isSlowPoll);
    void refreshStatus(bool isWanted);

    const BrowseRequest m_request;
    const Signals& m_signals;
    StoreFollower m_follower;
    VQRegLib::CFileNews m_news;
    Browser m_browser;
    Status m_status;
    Writer m_writer;
    bool m_hasNews = false;
    Clock::time_point m_nextReading;
    Clock::time_point m_nextPoll;
};

}  // namespace vqreg

#endif  // TOOLS_BROWSE_LOOP_H
