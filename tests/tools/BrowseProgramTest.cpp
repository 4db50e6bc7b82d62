// How the command finds the program of "vqreg browse", and what it says without it.
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

#include "tools/VqregStore.h"

using vqtest::ChildProcess;
using vqtest::fails;

namespace fs = std::filesystem;

class BrowseProgram : public vqtest::VqregStore {
protected:
    BrowseProgram() {
        fs::create_directories(directory / "bin");
        fs::copy_file(VQREG_COMMAND_PATH, directory / "bin/vqreg");
    }

    vqtest::CommandResult browse(const std::vector<std::string>& arguments) const {
        return ChildProcess(directory / "bin/vqreg", arguments).finish();
    }

    // In its place a program that tells its arguments.
    void install(const fs::path& program) const {
        fs::create_directories(program.parent_path());
        std::ofstream(program) << "#!/bin/sh\nprintf '<%s>' \"$@\"\n";
        fs::permissions(program, fs::perms::owner_all);
    }

    const fs::path directory = file.directory();
    const fs::path installed = directory / "libexec/vqreg/vqreg-browse";
};

TEST_F(BrowseProgram, IsNamedWithItsPackageWhereItIsMissing) {
    EXPECT_EQ(fails(3, installed.string() +
                           " is not installed; Debian has it in the package vqreg-browse"),
              browse({"browse"}));
}

TEST_F(BrowseProgram, SaysWhyItCannotBeStarted) {
    install(installed);
    fs::permissions(installed, fs::perms::owner_read);
    EXPECT_EQ(fails(3, installed.string() + ": Permission denied"), browse({"browse"}));
}

TEST_F(BrowseProgram, IsFoundWhereItIsInstalledAndToldWhatIsWanted) {
    install(installed);
    EXPECT_EQ(vqtest::prints("<-><-><30><notify><plain></>"), browse({"browse"}));
    EXPECT_EQ(vqtest::prints("<=a b><=><0.5><quiet><colour><K/ey>"),
              browse({"--file", "a b", "--root", "", "--timeout", "0.5", "--no-notify", "--color",
                      "always", "browse", "K/ey"}));
}

TEST_F(BrowseProgram, BesideTheCommandComesFirst) {
    install(installed);
    install(directory / "bin/vqreg-browse");
    fs::permissions(installed, fs::perms::owner_read);
    EXPECT_EQ(0, browse({"browse"}).status);
}
