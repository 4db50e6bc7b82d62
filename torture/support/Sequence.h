// Operations in any order on one store, while something fails at random below them.
#ifndef VQTORTURE_SEQUENCE_H
#define VQTORTURE_SEQUENCE_H

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "support/Agent.h"
#include "support/Operations.h"
#include "support/TempStore.h"
#include "support/Torture.h"

namespace vqtorture {

/// A store with one session of this process and one of the witness.
class Sequence {
public:
    Sequence(const std::string& below, vqtest::Agent& witness);
    ~Sequence();
    Sequence(const Sequence&) = delete;
    Sequence& operator=(const Sequence&) = delete;

    /// One operation, with `before` and `after` called right around it; after an exception a new
    /// session. @throws Violation for what the header does not say
    void step(Run& run, const std::function<void()>& before = {},
              const std::function<void()>& after = {});

    /// Once everything works: this process changes something, so does the witness, each reads the
    /// other's change, a new session can be opened, and nothing is left behind.
    void judge(bool mayLeaveFiles);

private:
    void act(const Operation& operation, const std::function<void()>& before,
             const std::function<void()>& after);

    const std::vector<Operation>& m_operations;
    vqtest::Agent& m_witness;
    vqtest::TempStore m_store;
    std::size_t m_descriptors;
    std::optional<Scene> m_scene;
};

}  // namespace vqtorture

#endif  // VQTORTURE_SEQUENCE_H
