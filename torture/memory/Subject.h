// What is tried without memory: one operation, whatever interface it belongs to, with all that it needs.
#ifndef VQTORTURE_MEMORY_SUBJECT_H
#define VQTORTURE_MEMORY_SUBJECT_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "memory/CallTexts.h"
#include "support/Ground.h"
#include "support/Operations.h"

namespace vqtorture {

/// The operation on one store. The destructor closes what it has opened.
class Subject {
public:
    Subject() = default;
    virtual ~Subject() = default;
    Subject(const Subject&) = delete;
    Subject& operator=(const Subject&) = delete;

    /// While everything works.
    virtual void prepare() = 0;

    /// The operation. @throws Violation when something comes of it that the header does not say
    virtual int act() = 0;

    /// Once everything works again: another thread gets into the store, and a change is made. What the
    /// operation has not done, and what is done now, changes the outcome. @throws Violation
    virtual void comeOn(Outcome& outcome) = 0;
};

/// Of the operation only the texts, and how its store is found, are looked at.
struct Tried {
    Operation operation;
    std::function<std::unique_ptr<Subject>(const Operation&, const std::string& path)> subject;
};

/// A call of another interface, on a store that begins with kStart, and the Subject that makes it.
template <typename Made, typename Call>
Tried triedOf(const Call& call) {
    const std::string& found = call.isChangedBefore ? call.after : kStart;
    return {{call.name, kStart, found, call.after, call.use, call.root, call.between},
            [call](const Operation& operation, const std::string& path) {
                return std::make_unique<Made>(operation, call, path);
            }};
}

/// Operations of VQRegLib.h.
std::vector<Tried> ofSessions(const std::vector<Operation>& operations);

/// Those of vqreg.h.
std::vector<Tried> ofC();

/// Those of VQRegStore.h, each in the form that throws and in the one that does not; and those with a
/// thread.
std::vector<Tried> ofStores();
std::vector<Tried> ofWatches();

/// As `require`, where there may be no memory.
void check(bool holds, const char* what);

/// Until the other threads of the process have done what the operation has set going. @throws Violation
void settle();

/// Runs a call on a thread of its own, which nothing may hold up. @throws Violation
void requireEntrance(const std::function<int()>& call, int expected);

/// After the same operation has succeeded, and an update of nothing: the file holds what it should, and
/// what the witness has added. @throws Violation
void requireWritten(const Operation& operation, const std::string& path);

}  // namespace vqtorture

#endif  // VQTORTURE_MEMORY_SUBJECT_H
