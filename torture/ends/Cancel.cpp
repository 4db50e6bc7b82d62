// Threads that are cancelled at the beginning and at the end of every system call of an operation.
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

#include "ends/CancelledOperations.h"
#include "ends/Checks.h"
#include "support/ForkedChild.h"
#include "support/OldSemaphores.h"
#include "support/Sessions.h"
#include "support/SteppedChild.h"
#include "support/Stops.h"
#include "support/TempStore.h"
#include "support/Wait.h"

namespace vqtorture {

namespace {

using VQRegLib::REGLIB_OK;
using vqtest::CRegLib;
using vqtest::SteppedChild;

constexpr unsigned kPatienceSeconds = 30;

// Between the test and the child whose thread is cancelled.
struct Order {
    std::atomic<bool> cancel{false};
    std::atomic<bool> isCancelled{false};
    std::atomic<bool> isAtEnd{false};  // the operation
};

// What the child ends with when something does not hold.
enum eOutcome { eHolds, eNotDone, eNotCancelled, eWrongNumber, eLockLeft, eRefused, eNoCall };

// In the child, by another thread, once the first one has ended.
int judge(Stores& stores, const CancelledOperation& operation) {
    if (vqtest::numberOf(*stores.session, "A") != operation.after) {
        return eWrongNumber;
    }
    if (!stores.file.isUnlocked()) {
        return eLockLeft;
    }
    if (vqtest::setNumber(*stores.session, "A", 3) != REGLIB_OK ||
        vqtest::setNumber(*stores.other, "B", 3) != REGLIB_OK ||
        stores.session->VQRegEndUpdate() != VQRegLib::REGLIB_E_FAIL ||
        !vqtest::openSession(stores.file.path(), "Last")->RootKey()) {
        return eRefused;
    }
    return eHolds;
}

template <typename Begin>
int cancelInChild(const vqtest::TempStore& file, const CancelledOperation& operation, Order& order,
                  Begin begin) {
    auto& stores = *new Stores(file);  // the child ends without destroying anything
    operation.before(stores);
    std::atomic<int> result{-1};
    std::atomic<bool> isThrough{false};
    std::thread thread([&] {
        begin();
        result = operation.once(stores);
        order.isAtEnd = true;
        while (!order.isCancelled && order.cancel) {
        }
        pthread_testcancel();
        isThrough = true;
    });
    vqtest::waitUntil([&] { return order.cancel || isThrough; });
    if (order.cancel) {
        pthread_cancel(thread.native_handle());
        order.isCancelled = true;
    }
    thread.join();
    if (!order.isAtEnd || result != REGLIB_OK) {
        return eNotDone;
    }
    return order.cancel && isThrough ? static_cast<int>(eNotCancelled) : judge(stores, operation);
}

class CancelledChild {
public:
    CancelledChild(const Run& run, const CancelledOperation& operation)
        : m_file(run.directory()),
          m_child([&](auto begin) { return cancelInChild(m_file, operation, *m_order, begin); },
                  SteppedChild::eAllThreads),
          m_walk(m_child) {}

    SteppedChild& child() { return m_child; }
    StopWalk& walk() { return m_walk; }

    // On to the next stop within the operation.
    bool step() { return m_walk.step() && !m_order->isAtEnd; }

    // Of a thread that stands where it has been left.
    void cancel() {
        m_order->cancel = true;
        require(vqtest::waitUntil([&] { return m_order->isCancelled.load(); }),
                "the thread cannot be cancelled");
    }

private:
    vqtest::TempStore m_file;
    vqtest::Common<Order> m_order;
    SteppedChild m_child;
    StopWalk m_walk;
};

void seeAll(const Run& run, const CancelledOperation& operation, Places& places) {
    removeOldSemaphores();
    CancelledChild cancelled(run, operation);
    int stops = 0;
    while (cancelled.step()) {
        places.see(cancelled.walk().at());
        ++stops;
    }
    const int status = cancelled.child().finish();
    require(status == eHolds, std::string(operation.name) + " ends with " + std::to_string(status));
    require(stops > 2, std::string(operation.name) + " is not stepped through");
}

bool cancelAt(Run& run, const CancelledOperation& operation, const Stop& stop, Places& places) {
    removeOldSemaphores();
    CancelledChild cancelled(run, operation);
    const bool isThere =
        places.goTo(stop, cancelled.walk(), [&cancelled] { return cancelled.step(); });
    const vqtest::SteppedChildGuard guard(cancelled.child(), kPatienceSeconds);
    if (isThere) {
        cancelled.cancel();
        run.add("cancellations");
    }
    const int status = cancelled.child().finish();
    const std::string where = operation.name + std::string(", cancelled at ") + stop.words();
    require(!guard.isTooLate(), where + ": somebody waits");
    require(status == eHolds, where + ": ends with " + std::to_string(status));
    return isThere;
}

}  // namespace

void cancelAtCalls(Run& run) {
    if (!SteppedChild::isPermitted()) {
        throw CannotRun("a process may not trace its child here");
    }
    std::size_t offset = 0;
    for (const CancelledOperation& operation : cancelledOperations()) {
        Places places(Part(kPartsOfPlaces, run.seed()), offset++);
        seeAll(run, operation, places);
        places.visitEach(run, run.count(),
                         [&](const Stop& stop) { return cancelAt(run, operation, stop, places); });
    }
    endPart(run);
}

}  // namespace vqtorture
