// "vqreg browse" with 100,000 values: a key costs what is seen.
#include <fstream>
#include <sstream>

#include "browse/BrowseStore.h"

using namespace vqtest::browse;

class BrowseLarge : public BrowseTest {
protected:
    // 100,000 values in one key, and 5,000 keys beside them.
    BrowseLarge() {
        std::string text = "[Velquist]\n";
        for (int number = 0; number < kValues; ++number) {
            text += "\"" + name(number) + "\"=dword:00000001\n";
        }
        for (int number = 0; number < 5000; ++number) {
            text += "[Velquist/" + name(number).replace(0, 1, "k") + "]\n";
        }
        file.write(text);
        m_size = text.size();
    }

    static constexpr int kValues = 100000;

    static std::string name(int number) {
        std::ostringstream text;
        text << 'v' << (1000000 + number);
        return text.str();
    }

    // What the process has read from files and elsewhere, and written.
    static std::size_t readBy(pid_t pid) {
        std::ifstream io("/proc/" + std::to_string(pid) + "/io");
        std::string field;
        std::size_t count = 0;
        io >> field >> count;
        EXPECT_EQ("rchar:", field);
        return count;
    }

    std::size_t m_size = 0;
};

TEST_F(BrowseLarge, WritesAndReadsOnlyWhatIsSeen) {
    Browsing browse = start();
    browse.type("\t");
    browse.expect("1 of 100000 values");
    const std::size_t shown = browse.bytesShown();
    const std::size_t read = readBy(browse.process().pid());
    constexpr int kKeys = 200;
    for (int key = 1; key <= kKeys; ++key) {
        browse.type(kPageDown);
        browse.expect(std::to_string(key * 10 + 1) + " of 100000 values");
    }
    browse.type("G");
    browse.expect("100000 of 100000 values");
    // What differs between two screens, about 100 bytes, and the file not again for any of them.
    EXPECT_LT(browse.bytesShown() - shown, (kKeys + 1) * 300u);
    EXPECT_LT(readBy(browse.process().pid()) - read, m_size / 2);
}

TEST_F(BrowseLarge, TakesWhatOthersChange) {
    Browsing browse = start();
    browse.type("\tG");
    browse.expect("100000 of 100000 values");
    make({"set", "/", "v1000000", "2"});
    browse.expect("changed by others: ~ [Velquist] \"v1000000\"=dword:00000001 -> dword:00000002");
    browse.type("e5\r");
    browse.expect("{v1099999       dword   15");
    browse.type("/v1050000\r");
    browse.expect("50001 of 100000 values");
}
