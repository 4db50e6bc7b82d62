// What VQRegStore.h tells of changes, whoever makes them.
#include <poll.h>

#include <atomic>
#include <condition_variable>
#include <csignal>
#include <memory>
#include <mutex>
#include <thread>

#include "store/CxxStoreFixture.h"

namespace {

std::string shown(const std::optional<vqreg::Value>& value) {
    if (!value) {
        return "-";
    }
    switch (value->type()) {
        case vqreg::Type::dword:
            return std::to_string(value->as<unsigned>());
        case vqreg::Type::string:
            return value->as<std::string>();
        default:
            return std::to_string(value->as<vqreg::Bytes>().size()) + " bytes";
    }
}

std::string shown(const vqreg::Change& change) {
    if (change.is_key) {
        EXPECT_EQ(change.name, "");
        return (change.is_present ? "+" : "-") + change.path;
    }
    EXPECT_EQ(change.is_present, change.after.has_value());
    return change.path + "|" + change.name + " " + shown(change.before) + " " + shown(change.after);
}

// What a watch has told, in its own thread.
class Told {
public:
    void operator()(const vqreg::Change& change) {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_texts.push_back(shown(change));
        m_condition.notify_all();
    }

    // Waits until there are so many.
    vqtest::Texts first(std::size_t count) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_condition.wait_for(lock, std::chrono::seconds(20),
                             [&] { return m_texts.size() >= count; });
        return m_texts;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_condition;
    vqtest::Texts m_texts;
};

class StoreWatch : public vqtest::CxxStoreTest {
protected:
    vqreg::Watch watching(const std::string& path) {
        return vqreg::Watch(store, path, std::ref(told));
    }

    vqreg::Store store = open();
    vqreg::Key key = store.create("Net");
    Told told;
};

vqtest::Texts allOf(vqreg::Changes& changes) {
    vqtest::Texts texts;
    while (const std::optional<vqreg::Change> change = changes.next()) {
        texts.push_back(shown(*change));
    }
    return texts;
}

bool isReadable(const vqreg::Changes& changes, int milliseconds) {
    pollfd source{changes.descriptor(), POLLIN, 0};
    return ::poll(&source, 1, milliseconds) == 1;
}

}  // namespace

TEST_F(StoreWatch, TellsPathAndWhatWasBeforeAndIsNow) {
    key.set("Port", 80);
    key.set("Old", "text");
    const vqreg::Watch watch = watching("Net");
    vqreg::Update update(store);
    update.set(key, "Port", 81);
    update.erase(key, "Old");
    update.set("Net/Sub", "Bytes", vqreg::Bytes(3));
    update.set("Elsewhere", "X", 1);
    update.commit();
    const vqtest::Texts expected = {"Net|Old text -", "Net|Port 80 81", "+Net/Sub",
                                    "Net/Sub|Bytes - 3 bytes"};
    EXPECT_EQ(told.first(4), expected);
    key.set("Port", 82);
    EXPECT_EQ(told.first(5).at(4), "Net|Port 81 82");
}

TEST_F(StoreWatch, TellsWhatOtherProcessesDo) {
    vqtest::Common<std::atomic<bool>> isWatched;
    vqtest::ForkedChild other([&] {
        const bool isTime = vqtest::waitUntil([&] { return isWatched->load(); });
        const vqreg::Store own = open();
        vqreg::Update update(own);
        update.set("", "Beside", 1);
        update.set("Net", "Port", 3);
        update.set("Net/Sub", "V", 2);
        update.commit();
        return isTime ? 0 : 1;
    });
    const vqreg::Watch watch = watching("Net");
    *isWatched = true;
    EXPECT_EQ(other.wait(), 0);
    EXPECT_EQ(told.first(3), (vqtest::Texts{"Net|Port - 3", "+Net/Sub", "Net/Sub|V - 2"}));
}

TEST_F(StoreWatch, IsOverWhenItsDestructorHasReturned) {
    std::atomic<bool> isIn{false};
    std::atomic<bool> mayGo{false};
    std::atomic<int> calls{0};
    std::atomic<bool> isDestroyed{false};
    std::thread destroying;
    {
        auto watch = std::make_unique<vqreg::Watch>(store, "Net", [&](const vqreg::Change&) {
            isIn = true;
            vqtest::waitUntil([&] { return mayGo.load(); });
            EXPECT_FALSE(isDestroyed);
            ++calls;
        });
        vqreg::Update update(store);
        update.set(key, "A", 1);
        update.set(key, "B", 2);
        update.commit();
        ASSERT_TRUE(vqtest::waitUntil([&] { return isIn.load(); }));
        destroying = std::thread([&, moved = std::move(watch)]() mutable {
            moved.reset();
            isDestroyed = true;
        });
    }
    mayGo = true;
    destroying.join();
    const int seen = calls;
    key.set("A", 3);
    EXPECT_LE(seen, 2);
    EXPECT_GE(seen, 1);
    EXPECT_EQ(calls, seen);
}

TEST_F(StoreWatch, MayBeDestroyedInItsOwnCall) {
    std::unique_ptr<vqreg::Watch> watch;
    std::mutex mutex;  // until the pointer is there
    std::atomic<int> calls{0};
    const auto kept = std::make_shared<int>(7);
    const std::weak_ptr<int> alive = kept;
    {
        const std::lock_guard<std::mutex> guard(mutex);
        watch = std::make_unique<vqreg::Watch>(store, "", [&, own = kept](const vqreg::Change&) {
            const std::lock_guard<std::mutex> inner(mutex);
            watch.reset();
            calls += *own == 7;  // what the call holds is still there
        });
    }
    vqreg::Update update(store);
    update.set(key, "A", 1);
    update.set(key, "B", 2);
    update.commit();
    ASSERT_TRUE(vqtest::waitUntil([&] { return calls == 1; }));
    key.set("A", 3);
    // The thread lets go of the function at its end.
    EXPECT_TRUE(vqtest::waitUntil([&] { return alive.use_count() == 1; }));
    EXPECT_EQ(calls, 1) << "it was the last one";
}

TEST_F(StoreWatch, MayChangeTheStoreInItsCall) {
    const vqreg::Watch watch(store, "Net", [this](const vqreg::Change& change) {
        if (change.name == "Order") {
            store.create("Answers").set("Order", change.after->as<int>() + 1);
        }
    });
    key.set("Order", 41);
    EXPECT_TRUE(vqtest::waitUntil([this] {
        const std::optional<vqreg::Key> answers = store.find("Answers");
        return answers && answers->get<int>("Order") == 42;
    }));
}

TEST_F(StoreWatch, TellsOfTroubleOnceAndWhenItIsOver) {
    std::mutex mutex;
    std::vector<std::error_code> troubles;
    const auto count = [&] {
        const std::lock_guard<std::mutex> guard(mutex);
        return troubles.size();
    };
    const vqreg::Watch watch(store, "Net", std::ref(told), [&](std::error_code error) {
        const std::lock_guard<std::mutex> guard(mutex);
        troubles.push_back(error);
    });
    replaceFile("[Velquist]\nnonsense\n");
    ASSERT_TRUE(vqtest::waitUntil([&] { return count() == 1; }));
    replaceFile("[Velquist]\nother nonsense\n");
    replaceFile("[Velquist]\n[Velquist/Net]\n\"V\"=dword:7\n");
    EXPECT_EQ(told.first(1), vqtest::Texts{"Net|V - 7"});
    const std::lock_guard<std::mutex> guard(mutex);
    ASSERT_EQ(troubles.size(), 2u);
    EXPECT_EQ(troubles[0], vqreg::errc::bad_format);
    EXPECT_FALSE(troubles[1]);
}

TEST_F(StoreWatch, MayBeDestroyedWhenItTellsThatTroubleIsOver) {
    std::unique_ptr<vqreg::Watch> watch;
    std::mutex mutex;  // until the pointer is there
    std::atomic<bool> isTrouble{false};
    const auto kept = std::make_shared<int>(7);
    const std::weak_ptr<int> alive = kept;
    std::atomic<int> calls{0};
    {
        const std::lock_guard<std::mutex> guard(mutex);
        watch = std::make_unique<vqreg::Watch>(
            store, "Net", [&, own = kept](const vqreg::Change&) { calls += *own; },
            [&](std::error_code error) {
                const std::lock_guard<std::mutex> inner(mutex);
                isTrouble = static_cast<bool>(error);
                if (!error) {
                    watch.reset();
                }
            });
    }
    replaceFile("[Velquist]\nnonsense\n");
    ASSERT_TRUE(vqtest::waitUntil([&] { return isTrouble.load(); }));
    replaceFile("[Velquist]\n[Velquist/Net]\n\"V\"=dword:7\n");
    EXPECT_TRUE(vqtest::waitUntil([&] { return alive.use_count() == 1; }));
    EXPECT_EQ(calls, 0);
}

TEST_F(StoreWatch, BlocksTheSignalsInItsThread) {
    std::atomic<int> isBlocked{-1};
    const vqreg::Watch watch(store, "Net", [&](const vqreg::Change&) {
        sigset_t blocked;
        ::pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
        isBlocked = ::sigismember(&blocked, SIGTERM);
    });
    sigset_t own;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &own);
    EXPECT_EQ(::sigismember(&own, SIGTERM), 0);
    key.set("V", 1);
    EXPECT_TRUE(vqtest::waitUntil([&] { return isBlocked == 1; }));
}

TEST_F(StoreWatch, IsMovedWithItsThread) {
    vqreg::Watch watch = watching("Net");
    vqreg::Watch moved = std::move(watch);
    key.set("V", 1);
    EXPECT_EQ(told.first(1), vqtest::Texts{"Net|V - 1"});
    Told others;
    moved = vqreg::Watch(store, "Other", std::ref(others));
    key.set("V", 2);
    store.create("Other").set("V", 3);
    EXPECT_EQ(others.first(2), (vqtest::Texts{"+Other", "Other|V - 3"}));
    EXPECT_EQ(told.first(1), vqtest::Texts{"Net|V - 1"}) << "it ended with the assignment";
}

TEST_F(StoreWatch, OutlivesItsStore) {
    const auto make = [this] {
        const vqreg::Store own(file.path(), "Other");
        return vqreg::Watch(own, "K", std::ref(told));
    };
    const vqreg::Watch watch = make();
    vqreg::Store(file.path(), "Other").create("K").set("V", 1);
    const vqtest::Texts texts = told.first(2);
    EXPECT_EQ(texts, (vqtest::Texts{"+K", "K|V - 1"}));
}

TEST_F(StoreWatch, ThatCannotBeIsRefused) {
    const auto call = [](const vqreg::Change&) {};
    EXPECT_EQ(thrown([&] { vqreg::Watch(store, "a//b", call); }), vqreg::errc::not_storable);
    EXPECT_EQ(thrown([&] { vqreg::Watch(store, std::string("a\0b", 3), call); }),
              vqreg::errc::not_storable);
    std::error_code error;
    vqreg::Changes none(store, "a]", error);
    EXPECT_EQ(error, vqreg::errc::not_storable);
    EXPECT_EQ(none.descriptor(), -1);
    EXPECT_EQ(none.next(error), std::nullopt);
    EXPECT_EQ(error, vqreg::errc::fail);
    replaceFile("[Velquist]\nnonsense\n");
    EXPECT_EQ(thrown([&] { vqreg::Watch(store, "Net", call); }), vqreg::errc::bad_format);
}

TEST_F(StoreWatch, CanBeHadWithoutAnException) {
    std::error_code error = vqreg::errc::fail;
    const vqreg::Watch watch(store, "Net", std::ref(told), nullptr, error);
    EXPECT_FALSE(error);
    key.set("V", 1);
    EXPECT_EQ(told.first(1), vqtest::Texts{"Net|V - 1"});
    vqreg::Watch none(store, "a]", std::ref(told), nullptr, error);
    EXPECT_EQ(error, vqreg::errc::not_storable);
    none = vqreg::Watch(store, "Net", std::ref(told));
}

TEST_F(StoreWatch, ChangesAreForAnEventLoop) {
    vqreg::Changes changes(store, "");
    EXPECT_FALSE(isReadable(changes, 0));
    EXPECT_EQ(changes.next(), std::nullopt);
    vqtest::ForkedChild other([&] {
        open().key("Net").set("V", 1);
        return 0;
    });
    EXPECT_EQ(other.wait(), 0);
    EXPECT_TRUE(isReadable(changes, 20000));
    EXPECT_EQ(allOf(changes), vqtest::Texts{"Net|V - 1"});
    EXPECT_FALSE(isReadable(changes, 0)) << "quiet again";
    replaceFile("[Velquist]\nnonsense\n");
    EXPECT_EQ(textOf([&] { changes.next(); }), "the store's file is malformed: " + file.path() +
                                                   ":2:1: neither a key nor a value begins here");
}
