// Change handlers of the library: whom a store tells that its file has changed.
#ifndef VQTORTURE_MODEL_WATCHING_H
#define VQTORTURE_MODEL_WATCHING_H

#include <array>
#include <cstddef>
#include <map>
#include <mutex>
#include <string>
#include <thread>

#include "VQRegLib.h"
#include "model/Step.h"

namespace vqtorture::model {

/// Counts its calls by the threads that make them, of which each store has one of its own.
class CountingHandler : public VQRegLib::CRegistryChangeHandler {
public:
    using Calls = std::map<std::thread::id, int>;

    void OnRegistryChange() override;
    Calls calls() const;

private:
    mutable std::mutex m_mutex;
    Calls m_calls;
};

/// Changes the time of a file several times, notifies, and says of each handler whether the session's
/// store has told it of that. One more handler, registered for so long, shows when that has been: the
/// handlers of a store are called one after the other.
vqtest::Fields lookWhoIsTold(VQRegLib::CRegLib& session, const std::string& path,
                             const std::array<CountingHandler, kChangeHandlers>& handlers);

}  // namespace vqtorture::model

#endif  // VQTORTURE_MODEL_WATCHING_H
