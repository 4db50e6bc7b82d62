// Threads that are cancelled at the beginning and at the end of every system call of an operation.
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "ends/Checks.h"
#include "support/ForkedChild.h"
#include "support/Handlers.h"
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

// The child's store, and another store of the child on the same file, which is like another process.
struct Stores {
    explicit Stores(const vqtest::TempStore& place)
        : session(vqtest::openSession(place.path())),
          other(vqtest::openSession(place.path(), "Other")),
          file(place) {
        require(session->RootKey() && other->RootKey(), "a session has no store");
        require(vqtest::setNumber(*session, "A", 1) == REGLIB_OK, "a set is refused");
        require(vqtest::setNumber(*other, "A", 1) == REGLIB_OK, "a set is refused");
    }

    std::unique_ptr<CRegLib> session;
    std::unique_ptr<CRegLib> other;
    const vqtest::TempStore& file;
};

int setOnce(Stores& stores) {
    return vqtest::setNumber(*stores.session, "A", 2);
}

int updateOnce(Stores& stores) {
    VQRegLib::CRegUpdate update(*stores.session);
    for (const char* name : {"A", "B", "C"}) {
        if (vqtest::setNumber(*stores.session, name, 2) != REGLIB_OK) {
            return -1;
        }
    }
    return update.end();
}

int openOnce(Stores& stores) {
    const auto opened = vqtest::openSession(stores.file.path(), "Opened");
    return opened->RootKey() ? vqtest::setNumber(*stores.session, "A", 2) : -1;
}

int openNewOnce(Stores& stores) {
    const std::string path = stores.file.directory() + "/new.cfg";
    const auto opened = vqtest::openSession(path);
    return opened->RootKey() ? vqtest::setNumber(*stores.session, "A", 2) : -1;
}

int registerOnce(Stores& stores) {
    vqtest::Handler handler;
    stores.session->SetRegistryChangeHandler(&handler);
    const int sent = stores.session->SendRegistryChangeNotification();
    stores.session->ClrRegistryChangeHandler(&handler);
    return sent == REGLIB_OK ? vqtest::setNumber(*stores.session, "A", 2) : sent;
}

// After a change by somebody else.
int queryOnce(Stores& stores) {
    return vqtest::numberOf(*stores.session, "A") == 2 ? REGLIB_OK : -1;
}

// The file is missing, so that it is made again.
int queryOfMissingOnce(Stores& stores) {
    return vqtest::numberOf(*stores.session, "A") == 1 ? REGLIB_OK : -1;
}

struct Operation {
    const char* name;
    int (*once)(Stores& stores);
    long after;  // the number A
    void (*before)(Stores& stores);
};

void nothing(Stores&) {}

// As another process does it, whose tree has the number of this one's key, too.
void changeByOther(Stores& stores) {
    CRegLib& other = *stores.other;
    vqtest::CRegKey top;
    vqtest::CRegKey key;
    require(other.VQRegCreateKey(&top, "Velquist", key, 0) == REGLIB_OK &&
                other.VQRegSetValue(key, "A", 2ul) == REGLIB_OK,
            "the other store is refused a change");
}

void removeFile(Stores& stores) {
    std::remove(stores.file.path().c_str());
    require(stores.other->VQRegReload() == REGLIB_OK, "the stamp is not renewed");
}

constexpr Operation kOperations[] = {
    {"set", setOnce, 2, nothing},
    {"update", updateOnce, 2, nothing},
    {"open", openOnce, 2, nothing},
    {"open of nothing", openNewOnce, 2, nothing},
    {"register", registerOnce, 2, nothing},
    {"query", queryOnce, 2, changeByOther},
    {"query of a missing file", queryOfMissingOnce, 1, removeFile}};

// What the child ends with when something does not hold.
enum eOutcome { eHolds, eNotDone, eNotCancelled, eWrongNumber, eLockLeft, eRefused, eNoCall };

// In the child, by another thread, once the first one has ended.
int judge(Stores& stores, const Operation& operation) {
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
int cancelInChild(const vqtest::TempStore& file, const Operation& operation, Order& order,
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
    CancelledChild(const Run& run, const Operation& operation)
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

void seeAll(const Run& run, const Operation& operation, Places& places) {
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

bool cancelAt(Run& run, const Operation& operation, const Stop& stop, Places& places) {
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
    for (const Operation& operation : kOperations) {
        Places places(Part(kPartsOfPlaces, run.seed()), offset++);
        seeAll(run, operation, places);
        places.visitEach(run, run.count(),
                         [&](const Stop& stop) { return cancelAt(run, operation, stop, places); });
    }
    endPart(run);
}

}  // namespace vqtorture
