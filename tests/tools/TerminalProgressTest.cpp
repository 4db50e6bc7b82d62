// What a terminal shows of work that takes long.
#include <gmock/gmock.h>

#include <csignal>
#include <cstdlib>
#include <string>

#include "tools/TerminalStore.h"

using vqtest::Arguments;
using vqtest::TempStore;
using vqtest::TerminalProcess;
using vqtest::TerminalResult;
using vqtest::TerminalStreams;
using vqtest::terminal::kInterrupted;
using vqtest::terminal::kTerminalText;
using vqtest::terminal::shows;
using vqtest::terminal::Terminal;

// With a clock that goes on by a quarter of a second at each look, and one look at each step.
class TerminalProgress : public Terminal {
protected:
    TerminalProcess startSlowly(const Arguments& arguments, TerminalStreams streams = {}) const {
        const char* const given = std::getenv("ASAN_OPTIONS");
        return start(
            arguments,
            {{"LD_PRELOAD", VQREG_STEPPING_CLOCK},
             {"ASAN_OPTIONS", std::string(given ? given : "") + ":verify_asan_link_order=0"}},
            streams);
    }

    // A text with so many values and no sub key.
    static std::string valuesText(int count) {
        std::string text = "[Velquist]\n";
        for (int i = 0; i < count; ++i) {
            text += "\"v" + std::to_string(10000 + i) + "\"=dword:00000001\n";
        }
        return text;
    }

    TempStore text;
};

TEST_F(TerminalProgress, OfAnImportHasRateAndTimeLeft) {
    text.write(valuesText(6));
    EXPECT_EQ(startSlowly({"import", text.path()}).finish(),
              shows("\r4 of 6 changes, 4 per second, 0 s left\x1b[K"
                    "\r5 of 6 changes, 4 per second, 0 s left\x1b[K"
                    "\r6 of 6 changes, 4 per second, 0 s left\x1b[K"
                    "\r\x1b[K"));
    text.write(valuesText(1000));
    TerminalProcess longer = startSlowly({"import", "--replace", text.path()});
    longer.expect("\r100 of 997 changes, 4 per second, 224 s left\x1b[K\r101 of ");
    EXPECT_EQ(0, longer.finish().status);
    EXPECT_EQ(valuesText(1000), file.read());
}

TEST_F(TerminalProgress, OfAnExportCountsKeysAndValues) {
    file.write(valuesText(20));
    TerminalProcess command = startSlowly({"export"});
    command.expect("\r12 of 20 keys and values, ");
    command.expect(" s left\x1b[K");
    command.expect("\r20 of 20 keys and values, ");
    command.expect(", 0 s left\x1b[K\r\x1b[K" + valuesText(20));
    EXPECT_EQ(0, command.finish().status);
}

TEST_F(TerminalProgress, OfAnExportIntoAPipeGoesOnWhileItIsWritten) {
    file.write(valuesText(20000));
    const auto size = std::to_string(valuesText(20000).size());
    TerminalProcess command = startSlowly({"export"}, {.out = false});
    command.expect(" of 20000 keys and values, ");
    command.expect("\r" + std::to_string(4 * 65536) + " of " + size +
                   " bytes, 262144 per second, 1 s left\x1b[K");
    const TerminalResult result = command.finish();
    EXPECT_EQ(0, result.status);
    EXPECT_TRUE(result.screen.ends_with("\r\x1b[K"));
    EXPECT_EQ(valuesText(20000), result.out);
}

TEST_F(TerminalProgress, IsOnlyForTerminals) {
    text.write(valuesText(10));
    EXPECT_EQ(startSlowly({"import", text.path()}, {.err = false}).finish(), shows(""));
    EXPECT_EQ(startSlowly({"export"}, {.out = false, .err = false}).finish().err, "");
}

TEST_F(TerminalProgress, IsNotShownForQuickWork) {
    text.write(valuesText(10));
    EXPECT_EQ(start({"import", text.path()}).finish(), shows(""));
}

TEST_F(TerminalProgress, GivesWayToTheMessageOfAnInterrupt) {
    // Far more lines than a terminal keeps for one who does not read: the import is in the middle.
    text.write(valuesText(20000));
    TerminalProcess command = startSlowly({"import", text.path()});
    command.expect("\r4 of 20000 changes, ");
    const TerminalResult result = command.interrupt();
    EXPECT_EQ(-SIGINT, result.status);
    EXPECT_TRUE(result.screen.ends_with(std::string("\r\x1b[K") + kInterrupted))
        << result.screen.substr(result.screen.size() - 200);
    EXPECT_EQ(kTerminalText, file.read());
    EXPECT_FALSE(file.backupExists());
}
