// Watches of the C interface: what has changed, whoever has changed it.
#include <poll.h>
#include <sys/resource.h>

#include <filesystem>
#include <fstream>
#include <utility>

#include "c/CStoreFixture.h"
#include "support/ForkedChild.h"
#include "support/Wait.h"

namespace {

std::string shown(const vqreg_data& data) {
    switch (data.type) {
        case VQREG_DWORD: {
            std::uint32_t number = 0;
            std::memcpy(&number, data.data, sizeof number);
            return std::to_string(number);
        }
        case VQREG_STRING:
            return static_cast<const char*>(data.data);
        case VQREG_BINARY:
            return std::to_string(data.size) + " bytes";
        default:
            return data.data ? "?" : "-";
    }
}

std::string shown(const vqreg_change& change) {
    if (change.name == nullptr) {
        return std::string(change.is_present ? "+" : "-") + change.path;
    }
    EXPECT_EQ(change.is_present != 0, change.after.type != VQREG_NONE);
    return std::string(change.path) + "|" + change.name + " " + shown(change.before) + " " +
           shown(change.after);
}

class CWatch : public vqtest::CStoreTest {
protected:
    void TearDown() override {
        vqreg_watch_close(watch);
        CStoreTest::TearDown();
    }

    void start(const char* path) {
        int result = 1;
        watch = vqreg_watch_open(store, path, &result);
        ASSERT_NE(watch, nullptr);
        ASSERT_EQ(result, VQREG_OK);
    }

    bool isReadable(int milliseconds) const {
        pollfd source{vqreg_watch_fd(watch), POLLIN, 0};
        return ::poll(&source, 1, milliseconds) == 1;
    }

    std::vector<std::string> changes() {
        std::vector<std::string> list;
        const vqreg_change* change = nullptr;
        while ((last = vqreg_watch_next(watch, &change)) == 1) {
            list.push_back(shown(*change));
        }
        return list;
    }

    vqreg_watch* watch = nullptr;
    int last = 0;
};

using Texts = std::vector<std::string>;

}  // namespace

TEST_F(CWatch, TellsWhatWasBeforeAndIsNow) {
    ASSERT_EQ(vqreg_set_dword(store, "Net", "Port", 80), VQREG_OK);
    ASSERT_EQ(vqreg_set_string(store, "Net", "Old", "text"), VQREG_OK);
    start("Net");
    EXPECT_EQ(changes(), Texts{});
    EXPECT_EQ(last, 0);
    ASSERT_EQ(vqreg_begin_update(store), VQREG_OK);
    ASSERT_EQ(vqreg_set_dword(store, "Net", "Port", 81), VQREG_OK);
    ASSERT_EQ(vqreg_delete_value(store, "Net", "Old"), VQREG_OK);
    ASSERT_EQ(vqreg_set_binary(store, "Net/Sub", "Bytes", "abc", 3), VQREG_OK);
    ASSERT_EQ(vqreg_set_dword(store, "Elsewhere", "X", 1), VQREG_OK);
    ASSERT_EQ(vqreg_end_update(store), VQREG_OK);
    EXPECT_TRUE(isReadable(20000));
    EXPECT_EQ(changes(),
              (Texts{"Net|Old text -", "Net|Port 80 81", "+Net/Sub", "Net/Sub|Bytes - 3 bytes"}));
    EXPECT_EQ(changes(), Texts{});
    EXPECT_FALSE(isReadable(0)) << "quiet again";
}

TEST_F(CWatch, OfTheRootKeyHasPathsBelowIt) {
    start("");
    ASSERT_EQ(vqreg_set_dword(store, "", "A", 1), VQREG_OK);
    ASSERT_EQ(vqreg_set_dword(store, "B/C", "D", 2), VQREG_OK);
    EXPECT_EQ(changes(), (Texts{"|A - 1", "+B", "+B/C", "B/C|D - 2"}));
    ASSERT_EQ(vqreg_delete_value(store, "B/C", "D"), VQREG_OK);
    ASSERT_EQ(vqreg_delete_key(store, "B/C"), VQREG_OK);
    ASSERT_EQ(vqreg_delete_key(store, "B"), VQREG_OK);
    EXPECT_EQ(changes(), (Texts{"B/C|D 2 -", "-B/C", "-B"}));
}

TEST_F(CWatch, OfAKeyThatIsMissingSeesItComeAndGo) {
    start("Later/Key");
    ASSERT_EQ(vqreg_set_dword(store, "Later", "Beside", 1), VQREG_OK);
    EXPECT_EQ(changes(), Texts{});
    ASSERT_EQ(vqreg_set_dword(store, "later/KEY", "V", 1), VQREG_OK);
    EXPECT_EQ(changes(), (Texts{"+Later/Key", "Later/Key|V - 1"}));
    ASSERT_EQ(vqreg_delete_value(store, "Later/Key", "V"), VQREG_OK);
    ASSERT_EQ(vqreg_delete_key(store, "Later/Key"), VQREG_OK);
    EXPECT_EQ(changes(), (Texts{"Later/Key|V 1 -", "-Later/Key"}));
}

TEST_F(CWatch, SeesWhatOtherProcessesDo) {
    ASSERT_EQ(vqreg_set_dword(store, "K", "V", 1), VQREG_OK);
    start("K");
    vqtest::ForkedChild other([this] {
        vqreg_store* const own = vqreg_open(file.path().c_str(), nullptr, nullptr);
        const bool isDone = vqreg_set_dword(own, "K", "V", 2) == VQREG_OK;
        vqreg_close(own);
        return isDone ? 0 : 1;
    });
    EXPECT_EQ(other.wait(), 0);
    EXPECT_TRUE(isReadable(20000));
    EXPECT_EQ(changes(), Texts{"K|V 1 2"});
}

TEST_F(CWatch, CountsWhatIsAsItWasAsNoChange) {
    ASSERT_EQ(vqreg_set_dword(store, "K", "V", 1), VQREG_OK);
    start("K");
    ASSERT_EQ(vqreg_set_dword(store, "K", "V", 2), VQREG_OK);
    ASSERT_EQ(vqreg_set_dword(store, "K", "V", 1), VQREG_OK);
    EXPECT_TRUE(isReadable(20000));
    EXPECT_EQ(changes(), Texts{});
    // By hand, with another spelling of the number.
    file.write("[Velquist]\n[Velquist/K]\n\"v\"=dword:1\n");
    EXPECT_EQ(changes(), Texts{});
    file.write("[Velquist]\n[Velquist/K]\n\"V\"=string:1\n");
    EXPECT_EQ(changes(), Texts{"K|V 1 1"}) << "another type is another value";
}

TEST_F(CWatch, TellsOfAMalformedFileUntilItIsMended) {
    start("K");
    file.write("[Velquist]\nnonsense\n");
    EXPECT_EQ(changes(), Texts{});
    EXPECT_EQ(last, VQREG_E_BAD_FORMAT);
    EXPECT_EQ(changes(), Texts{});
    EXPECT_EQ(last, VQREG_E_BAD_FORMAT) << "and again, although there was no news";
    file.write("[Velquist]\n[Velquist/K]\n\"V\"=dword:00000007\n");
    EXPECT_EQ(changes(), (Texts{"+K", "K|V - 7"}));
}

TEST_F(CWatch, TakesARemovedFileForNoChange) {
    ASSERT_EQ(vqreg_set_dword(store, "K", "V", 1), VQREG_OK);
    start("K");
    ASSERT_EQ(::unlink(file.path().c_str()), 0);
    EXPECT_EQ(changes(), Texts{});
    EXPECT_EQ(last, 0);
    ASSERT_EQ(vqreg_set_dword(store, "K", "V", 2), VQREG_OK);
    EXPECT_EQ(changes(), Texts{"K|V 1 2"});
}

// As by "zcat backup >store.cfg".
TEST_F(CWatch, WaitsForTheEndOfAFileThatIsMadeByHand) {
    ASSERT_EQ(vqreg_set_dword(store, "K", "V", 1), VQREG_OK);
    start("K");
    std::filesystem::remove(file.path());
    std::ofstream text(file.path());
    EXPECT_EQ(changes(), Texts{});
    text << "[Velquist]\n[Velquist/K]\n\"V\"=dword:00000002\n";
    EXPECT_EQ(changes(), Texts{}) << "nothing is in it yet";
    text.close();
    EXPECT_EQ(changes(), Texts{"K|V 1 2"});
}

TEST_F(CWatch, IsNotMovedByOtherFilesOfTheDirectory) {
    start("K");
    std::ofstream(file.directory() + "/other") << "text";
    EXPECT_TRUE(isReadable(20000));
    EXPECT_EQ(changes(), Texts{});
    EXPECT_FALSE(isReadable(0));
}

TEST_F(CWatch, ThatCannotBeIsRefused) {
    int result = 0;
    EXPECT_EQ(vqreg_watch_open(nullptr, "", &result), nullptr);
    EXPECT_EQ(result, VQREG_E_FAIL);
    EXPECT_EQ(vqreg_watch_open(store, "a//b", &result), nullptr);
    EXPECT_EQ(result, VQREG_E_NOT_STORABLE);
    const vqreg_change* change = nullptr;
    EXPECT_EQ(vqreg_watch_next(nullptr, &change), VQREG_E_FAIL);
    EXPECT_EQ(vqreg_watch_fd(nullptr), -1);
    start("");
    EXPECT_EQ(vqreg_watch_next(watch, nullptr), VQREG_E_FAIL);
}

// A directory of that name may be another one from one moment to the next.
TEST_F(CWatch, GoesOnInADirectoryThatTakesThePlace) {
    ASSERT_EQ(vqreg_set_dword(store, "K", "V", 1), VQREG_OK);
    start("K");
    const std::string away = file.directory() + ".away";
    std::filesystem::rename(file.directory(), away);
    EXPECT_TRUE(isReadable(5000));
    EXPECT_EQ(changes(), std::vector<std::string>());
    EXPECT_EQ(last, VQREG_E_FILE_OPEN);
    std::filesystem::create_directory(file.directory());
    EXPECT_EQ(vqreg_set_dword(store, "K", "V", 2), VQREG_OK);
    EXPECT_EQ(changes(), std::vector<std::string>{"K|V 1 2"});
    EXPECT_EQ(vqreg_set_dword(store, "K", "V", 3), VQREG_OK);
    EXPECT_TRUE(isReadable(5000));
    EXPECT_EQ(changes(), std::vector<std::string>{"K|V 2 3"});
    std::filesystem::remove_all(away);
}

// No event of the file's own directory tells of it.
TEST_F(CWatch, GoesOnWhereADirectoryAboveIsReplaced) {
    const std::string above = file.directory() + "/above";
    const std::string path = above + "/below/store.cfg";
    std::filesystem::create_directories(above + "/below");
    vqreg_close(store);
    store = vqreg_open(path.c_str(), nullptr, nullptr);
    ASSERT_EQ(vqreg_set_dword(store, "K", "V", 1), VQREG_OK);
    start("K");
    std::filesystem::rename(above, above + ".away");
    EXPECT_EQ(changes(), Texts{});
    EXPECT_EQ(last, VQREG_E_FILE_OPEN) << "there is none";
    std::filesystem::create_directories(above + "/below");
    std::ofstream(path) << "[Velquist]\n[Velquist/K]\n\"V\"=dword:00000002\n";
    EXPECT_EQ(changes(), Texts{"K|V 1 2"});
    // At once.
    std::filesystem::rename(above, above + ".older");
    std::filesystem::rename(above + ".away", above);
    EXPECT_EQ(changes(), Texts{"K|V 2 1"});
    EXPECT_FALSE(isReadable(0)) << "quiet again";
    std::ofstream(path) << "[Velquist]\n[Velquist/K]\n\"V\"=dword:00000003\n";
    EXPECT_TRUE(isReadable(5000));
    EXPECT_EQ(changes(), Texts{"K|V 1 3"});
    vqreg_close(std::exchange(store, nullptr));
}

// Who waits for the descriptor would not ask again before there is another change.
TEST_F(CWatch, WithoutADescriptorForTheFileSaysThatAChangeIsLeft) {
    start("K");
    ASSERT_EQ(vqreg_set_dword(store, "K", "V", 1), VQREG_OK);
    rlimit usual{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &usual), 0);
    const rlimit none{0, usual.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    EXPECT_EQ(changes(), Texts{});
    EXPECT_EQ(last, VQREG_E_FAIL);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &usual), 0);
    EXPECT_TRUE(isReadable(0));
    EXPECT_EQ(changes(), (Texts{"+K", "K|V - 1"}));
}

// A file that is missing when a watch begins is no change either, when it comes back.
TEST_F(CWatch, ThatBeginsWithoutAFileTellsWhatChangesInTheFirstOne) {
    ASSERT_EQ(vqreg_set_dword(store, "K", "V", 1), VQREG_OK);
    const std::string text = file.read();
    ASSERT_EQ(::unlink(file.path().c_str()), 0);
    start("");
    EXPECT_EQ(changes(), Texts{});
    file.write(text);
    EXPECT_TRUE(isReadable(5000));
    EXPECT_EQ(changes(), Texts{});
    EXPECT_EQ(last, 0);
    ASSERT_EQ(vqreg_set_dword(store, "K", "V", 2), VQREG_OK);
    EXPECT_EQ(changes(), Texts{"K|V 1 2"});
}

// The line of a key may have more behind its bracket than its name.
TEST_F(CWatch, OfTheRootKeyIsOfTheNameThatItWasGiven) {
    vqreg_close(store);
    std::ofstream(file.path()) << "[Velquist]x\n[Other]y\n[Other/Network]\n\"V\"=dword:00000001\n";
    store = vqreg_open(file.path().c_str(), "Other", nullptr);
    ASSERT_NE(store, nullptr);
    start("");
    ASSERT_EQ(vqreg_set_dword(store, "Network", "V", 2), VQREG_OK);
    ASSERT_EQ(vqreg_set_dword(store, "", "W", 3), VQREG_OK);
    EXPECT_EQ(changes(), (std::vector<std::string>{"|W - 3", "Network|V 1 2"}));
}

TEST_F(CWatch, KeepsItsStoreOpen) {
    start("");
    vqreg_store* const other = open();
    vqreg_close(store);
    store = other;
    ASSERT_EQ(vqreg_set_dword(store, "", "V", 2), VQREG_OK);
    EXPECT_EQ(changes(), std::vector<std::string>{"|V - 2"});
}
