// What the commands that change a store have in common: the session and the update, which may be
// those of a batch, and what is told about the changes afterwards.
#ifndef TOOLS_VQREG_CHANGE_CHANGING_H
#define TOOLS_VQREG_CHANGE_CHANGING_H

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tools/vqreg/change/Context.h"
#include "tools/vqreg/store/OpenIn.h"
#include "tools/vqreg/store/StoreSession.h"
#include "tools/vqreg/text/Difference.h"

namespace vqreg {

struct ReportOptions {
    bool json = false;
    std::optional<double> verifySeconds;
};

// --json and --verify.
void addJsonOption(CLI::App& command, ReportOptions& options);
void addVerifyOption(CLI::App& command, ReportOptions& options);

// The update that the lines of a batch belong to.
struct Batch {
    StoreSession& session;
    std::vector<Change> changes;
    std::string output;
    std::vector<std::string> remarks;
};

// The keys of the path that are missing, as created.
std::vector<Change> createdKeys(StoreSession& store, const Path& path);

// Waits for what returns, if that is wanted, says what has and makes the exit code 1; prints the
// JSON text, if that is wanted. `above` leads from the top of the file to the paths of the changes.
void reportChanges(Context& context, const ReportOptions& options, const Path& above,
                   const std::vector<Change>& changes, bool isChanged);

// One change of the store, in a session of its own or in that of a batch. Nothing is written unless
// finish() is called.
class Changing {
public:
    enum class eDeletes { eNo, eMaybe };

    // Opens the store. Looks who else has it open when something may be deleted: here, because
    // nobody shall wait for that while the store is locked.
    Changing(Context& context, const ReportOptions& options, eDeletes deletes = eDeletes::eNo);
    ~Changing();
    Changing(const Changing&) = delete;
    Changing& operator=(const Changing&) = delete;

    StoreSession& store() { return m_context.batch ? m_context.batch->session : *m_session; }
    void begin();  // the update

    void record(Change change) { m_changes.push_back(std::move(change)); }
    void record(const std::vector<Change>& changes);
    void print(const std::string& text);  // on standard output, once all is written

    void tell(const std::string& remark);  // on standard error, likewise

    // Who will bring back what is deleted; once, and at the latest before it is.
    void warn();

    bool isVerified() const { return m_options.verifySeconds.has_value(); }

    void write();   // ends the update and tells other processes
    void report();  // what has been changed, and what returns
    void finish();  // both

    const std::vector<Change>& changes() const { return m_changes; }

private:
    Context& m_context;
    const ReportOptions m_options;
    Openers m_others;
    bool m_isWarned = false;
    bool m_isBegun = false;
    std::optional<StoreSession> m_session;
    std::vector<Change> m_changes;
    std::string m_output;
    std::vector<std::string> m_remarks;
};

}  // namespace vqreg

#endif  // TOOLS_VQREG_CHANGE_CHANGING_H
