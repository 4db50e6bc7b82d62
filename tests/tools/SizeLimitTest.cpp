// The commands under a limit of file sizes.
#include <gmock/gmock.h>

#include <csignal>

#include "tools/VqregStore.h"

using testing::ElementsAre;
using testing::StartsWith;
using vqtest::CommandResult;

class SizeLimit : public vqtest::VqregStore {};

// The signal of the limit would end the command in the middle of the file.
TEST_F(SizeLimit, FailsTheChangeAndLeavesNothing) {
    make({"set", "K", "Small", "1"});
    make({"set", "K", "Small", "2"});
    const std::string before = file.read();
    const std::string backup = file.readBackup();
    const CommandResult result =
        vqtest::ChildProcess("/bin/sh",
                             {"-c", "ulimit -f 2; exec \"$0\" \"$@\"", VQREG_COMMAND_PATH, "--file",
                              file.path(), "set", "K", "Large", std::string(1900, 'x')})
            .finish();
    EXPECT_EQ(result.status, 7) << result.err;
    EXPECT_THAT(result.err,
                StartsWith("vqreg: " + file.path() + ": the change could not be written: "));
    EXPECT_EQ(file.read(), before);
    EXPECT_EQ(file.readBackup(), backup);
    EXPECT_THAT(file.files(), ElementsAre("store.cfg", "store.cfg.bak"));
}

// An editor has its own ways with a limit.
TEST_F(SizeLimit, SignalsTheEditor) {
    make({"set", "K", "Small", "1"});
    const auto result =
        vqtest::runVqreg({"--file", file.path(), "edit"}, "",
                         {{"VISUAL", "kill -XFSZ $$;:"}, {"TMPDIR", file.directory()}});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, StartsWith("vqreg: the editor \"kill -XFSZ $$;:\" failed with status " +
                                       std::to_string(SIGXFSZ)));
}
