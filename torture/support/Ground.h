// Where one operation meets one fault, and what must hold afterwards.
#ifndef VQTORTURE_GROUND_H
#define VQTORTURE_GROUND_H

#include <cstddef>
#include <string>
#include <vector>

#include "support/Agent.h"
#include "support/Operations.h"
#include "support/TempStore.h"

namespace vqtorture {

/// What is set when everything works again: A by the process of the operation, B by the witness.
constexpr unsigned kOwn = 0xA;
constexpr unsigned kWitnesses = 0xB;

/// What became of an operation in which something failed.
struct Outcome {
    int code = 0;
    bool hasKept = false;        ///< what could not be written must go out with the next change
    bool mayLeaveFiles = false;  ///< a rename or a removal has failed
    bool mustFail = false;       ///< what it has written did not come to the disk
    bool isOut = false;          ///< it failed when the new text had taken the old one's place
    bool mayBeOld = false;  ///< a rename has failed: the file may be as it was, whatever the code
};

/// A store of its own, with the text that the operation begins with, and another process that has it open.
class Ground {
public:
    /// In a directory of its own below `below`.
    Ground(const std::string& below, const Operation& operation, vqtest::Agent& witness);
    ~Ground();
    Ground(const Ground&) = delete;
    Ground& operator=(const Ground&) = delete;

    std::string path() const { return m_store.path(); }

    /// After the operation, while its process still has the session: the file, what lies beside it, and
    /// that the witness reads at once and can change something when `changes`.
    void judge(const Outcome& outcome, bool changes);

    /// After the process has gone on with comeOn(): what the file must hold then.
    void judgeEnd(const Outcome& outcome);

    /// Nobody has the store open but the process of the operation.
    void dismissWitness();

    /// After the operation's process has died in it: the witness, which may be the first to come, goes on.
    void judgeDeath();

private:
    bool isWhole(const std::string& path, const std::vector<std::string>& texts) const;
    std::vector<std::string> passedTexts() const;
    std::vector<std::string> writtenTexts() const;
    void requireText(const std::vector<std::string>& texts, const std::string& what) const;
    void requireNoTemporaries() const;
    void requireWitness(bool changes);
    std::string withAdded(const std::string& text, bool isEnd) const;

    const Operation& m_operation;
    vqtest::Agent& m_witness;
    vqtest::TempStore m_store;
    bool m_isWitnessOpen = false;
    bool m_hasWitnessChanged = false;
};

/// In the process of the operation, once everything works again: another thread gets into the session,
/// and a change is made. @throws Violation
void comeOn(Scene& scene);

/// How many descriptors this process has open.
std::size_t openDescriptors();

}  // namespace vqtorture

#endif  // VQTORTURE_GROUND_H
