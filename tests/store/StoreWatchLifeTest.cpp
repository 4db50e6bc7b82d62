// Watches of VQRegStore.h in children, without functions, and without a directory for a while.
#include <atomic>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "store/CxxStoreFixture.h"

namespace {

class StoreWatchLife : public vqtest::CxxStoreTest {
protected:
    vqreg::Store store = open();
    vqreg::Key key = store.create("Net");
};

// How many descriptors of this process that wake somebody are set.
int wakingDescriptors() {
    int found = 0;
    for (const auto& each : std::filesystem::directory_iterator("/proc/self/fdinfo")) {
        std::ifstream lines(each.path());
        for (std::string line; std::getline(lines, line);) {
            const bool isCount = line.rfind("eventfd-count:", 0) == 0;
            found += isCount && line.find_first_of("123456789abcdef", 14) != std::string::npos;
        }
    }
    return found;
}

}  // namespace

TEST_F(StoreWatchLife, EndsInTheChildOfAForkWithoutWakingTheParents) {
    std::atomic<int> calls{0};
    auto watch =
        std::make_unique<vqreg::Watch>(store, "Net", [&](const vqreg::Change&) { ++calls; });
    const int before = wakingDescriptors();
    vqtest::ForkedChild child([&] {
        watch.reset();
        return 0;
    });
    EXPECT_EQ(child.wait(), 0);
    EXPECT_EQ(wakingDescriptors(), before) << "its thread would look for changes for ever";
    key.set("V", 1);
    EXPECT_TRUE(vqtest::waitUntil([&] { return calls == 1; }));
}

TEST_F(StoreWatchLife, GoesOnWhenTheDirectoryWasMissingForAWhile) {
    std::atomic<bool> isTrouble{false};
    std::atomic<int> last{0};
    const vqreg::Watch watch(
        store, "Net",
        [&](const vqreg::Change& change) { last = change.after ? change.after->as<int>() : 0; },
        [&](std::error_code error) { isTrouble = error == vqreg::errc::file_open; });
    takeDirectoryAway();
    EXPECT_TRUE(vqtest::waitUntil([&] { return isTrouble.load(); }));
    bringDirectoryBack();
    key.set("V", 1);
    EXPECT_TRUE(vqtest::waitUntil([&] { return last == 1; }));
    EXPECT_FALSE(isTrouble);
    key.set("V", 2);
    EXPECT_TRUE(vqtest::waitUntil([&] { return last == 2; }));
}

// No event tells of it.
TEST_F(StoreWatchLife, FindsThatADirectoryAboveWasReplaced) {
    const std::string above = file.directory() + "/above";
    const std::string path = above + "/below/store.cfg";
    std::filesystem::create_directories(above + "/below");
    const vqreg::Store there(path);
    there.create("Net").set("V", 1);
    std::atomic<int> last{0};
    const vqreg::Watch watch(there, "Net", [&](const vqreg::Change& change) {
        last = change.after ? change.after->as<int>() : 0;
    });
    there.create("Net").set("V", 3);
    EXPECT_TRUE(vqtest::waitUntil([&] { return last == 3; }));
    std::filesystem::create_directories(above + ".new/below");
    std::ofstream(above + ".new/below/store.cfg")
        << "[Velquist]\n[Velquist/Net]\n\"V\"=dword:00000002\n";
    std::filesystem::rename(above, above + ".old");
    std::filesystem::rename(above + ".new", above);
    EXPECT_TRUE(vqtest::waitUntil([&] { return last == 2; }));
}

TEST_F(StoreWatchLife, NeedsAFunction) {
    const auto fail = vqreg::errc::fail;
    EXPECT_EQ(thrown([&] { vqreg::Watch(store, "Net", nullptr); }), fail);
    EXPECT_EQ(thrown([&] { vqreg::Watch(store, "Net", vqreg::Watch::Function()); }), fail);
    std::error_code error;
    const vqreg::Watch watch(store, "Net", nullptr, nullptr, error);
    EXPECT_EQ(error, fail);
}
