// A store in which processes are killed or stopped, those that live on, and what must hold for them.
#ifndef VQTORTURE_KILL_GROUND_H
#define VQTORTURE_KILL_GROUND_H

#include <functional>
#include <optional>
#include <string>

#include "kill/Case.h"
#include "kill/Content.h"
#include "kill/Deeds.h"
#include "support/Agent.h"
#include "support/ForkedChild.h"
#include "support/TempStore.h"
#include "support/Torture.h"

namespace vqtorture {

/// Two programs that look at stores and change them, one store after the other.
struct Others {
    vqtest::Agent first{VQREG_AGENT_PATH};
    vqtest::Agent second{VQREG_AGENT_PATH};
};

/// One store. This process itself never uses the library, so that its children begin as programs do.
class Ground {
public:
    Ground(Run& run, Others& others, const Case& what);
    ~Ground();
    Ground(const Ground&) = delete;
    Ground& operator=(const Ground&) = delete;

    const std::string& path() const { return m_path; }
    const Case& what() const { return m_case; }
    Deed deed() const { return m_case.deed; }
    Progress& progress() { return *m_progress; }

    /// From now on another process changes the store as well, until the next judgement.
    void letOtherChange();

    /// After a death: the file is whole, no acknowledged change is lost, no lock is left, and all others
    /// see one text, which they can change, none of them waiting for longer than a second.
    /// Each of those that died may have left a temporary file.
    void judgeDeath(int deaths = 1);

    /// While a process is stopped: others read without waiting, by what they have open and, if wanted, by
    /// opening it anew.
    void judgeStop(bool alsoAnew);

    /// After it has gone on to its end: what it did is there for all.
    void judgeEnd();

    /// The next deed is another one.
    void beginAnew();

private:
    void closeToOtherUsers();
    void openOthers();
    void closeOthers();
    void collectOther();
    void lookAtFiles(int deaths);
    void lookAtNewStore();
    void openAnewBesideStopped();
    void lookAndChange();
    void notify();
    std::uint32_t& ownNumber();
    void expectSeen(const Content& seen, const char* who);
    Content lookFromNewProcess(std::optional<std::uint32_t> newOther);
    void timed(const std::string& what, const std::function<void()>& action);

    Run& m_run;
    Others& m_others;
    const Case m_case;
    vqtest::TempStore m_store;
    const std::string m_path;
    vqtest::Common<Progress> m_progress;
    Content m_now;                  // before the deed
    std::optional<Content> m_seen;  // by somebody, since then
    bool m_isDead = false;          // who did the deed: nothing changes by itself any more
    bool m_isOpen = false;          // by the others
    bool m_isChanging = false;      // the second other
};

/// Does the deed once; the body of a SteppedChild, whose `begin` comes before what is stepped through.
template <typename Begin>
int doOnce(Ground& ground, Begin begin) {
    Doer& doer = *new Doer(ground.deed(), ground.path(), ground.progress());  // it never ends
    becomeUserOf(ground.what());
    doer.prepare();
    begin();
    return doer.once() ? 0 : 1;
}

}  // namespace vqtorture

#endif  // VQTORTURE_KILL_GROUND_H
