// vqreg edit of a file that the library refuses, with shell commands in the place of an editor.
#include <VQRegLib.h>
#include <gmock/gmock.h>

#include <fstream>

#include "tools/TerminalProcess.h"
#include "tools/VqregStore.h"

using testing::HasSubstr;
using testing::StartsWith;
using vqtest::Arguments;
using vqtest::CommandResult;
using vqtest::TempStore;
using vqtest::TerminalProcess;

namespace {

const std::string kMalformed =
    "[Velquist]\n"
    "\"Port\"=dword 50\n"
    "[Velquist/Sub]\n"
    "\"a\"=string:b\n";
const std::string kMended =
    "[Velquist]\n"
    "\"Port\"=dword:00000050\n"
    "[Velquist/Sub]\n"
    "\"a\"=string:b\n";
const std::string kBackup = "[Velquist]\n\"Port\"=dword:00000001\n";
constexpr const char* kMend = "sed -i 's/dword 50/dword:00000050/'";

class EditMalformed : public vqtest::VqregStore {
protected:
    EditMalformed() {
        file.write(kMalformed);
        std::ofstream(file.backupPath()) << kBackup;
    }

    std::vector<std::pair<std::string, std::string>> environment(const std::string& editor) const {
        return {{"VISUAL", editor}, {"TMPDIR", texts.directory()}, {"LC_ALL", "C"}};
    }

    CommandResult edit(const std::string& editor, Arguments arguments = {}) const {
        arguments.insert(arguments.begin(), {"--file", file.path(), "edit"});
        return vqtest::runVqreg(arguments, "", environment(editor));
    }

    TerminalProcess editAtTerminal(const std::string& editor, Arguments arguments = {}) const {
        arguments.insert(arguments.begin(), {"--file", file.path(), "edit"});
        return TerminalProcess(VQREG_COMMAND_PATH, arguments, environment(editor), {});
    }

    // What is printed before the editor starts.
    std::string faults() const {
        return file.path() +
               ":2:16: error: \":\" is missing between type and data; write \"NAME\"=TYPE:DATA\n" +
               "vqreg: " + file.path() + ": the text is malformed; all of it is edited\n";
    }

    std::string kept() const {
        return "vqreg: the malformed text is kept in " + file.path() + ".malformed\n";
    }

    // The one text that the command has left; empty when there is none.
    std::string leftText() const {
        for (const std::string& name : texts.files()) {
            if (name.starts_with("vqreg-")) {
                return texts.directory() + "/" + name;
            }
        }
        return "";
    }

    void expectNothingDone() const {
        EXPECT_EQ(kMalformed, file.read());
        EXPECT_EQ(kBackup, file.readBackup());
        EXPECT_EQ(2u, file.files().size());
    }

    TempStore texts;
};

}  // namespace

TEST_F(EditMalformed, MendsTheTextAndLosesNothing) {
    EXPECT_EQ((CommandResult{0, "", faults() + "+ [Velquist] \"Port\"=dword:00000050\n" + kept()}),
              edit(kMend));
    EXPECT_EQ(kMended, file.read());
    EXPECT_EQ(kBackup, file.readBackup()) << "it is as good as before";
    EXPECT_EQ(kMalformed, vqtest::readFile(file.path() + ".malformed"));
    EXPECT_EQ(3u, file.files().size());
    EXPECT_EQ("", leftText());
}

TEST_F(EditMalformed, ShowsTheEditorTheWholePrivateText) {
    const std::string seen = texts.directory() + "/seen";
    EXPECT_EQ(
        4, edit("f() { stat -c %a \"$1\" >" + seen + "; cat \"$1\" >>" + seen + "; }; f", {"Sub"})
               .status);
    EXPECT_EQ("600\n" + kMalformed, vqtest::readFile(seen));
}

TEST_F(EditMalformed, SaysThatNothingHasBeenMended) {
    EXPECT_EQ((CommandResult{4, "",
                             faults() + "vqreg: " + file.path() +
                                 ": the text is malformed still; nothing has been changed\n"}),
              edit("true"));
    expectNothingDone();
    EXPECT_EQ("", leftText());
}

TEST_F(EditMalformed, DoesNotSaveAnotherMalformedText) {
    const CommandResult result = edit("sed -i s/string:b/strong:c/", {"-y"});
    ASSERT_NE("", leftText());
    EXPECT_EQ(4, result.status);
    EXPECT_THAT(result.err, StartsWith(faults() + leftText() + ":2:16: error: "));
    EXPECT_THAT(result.err,
                HasSubstr("\nvqreg: " + leftText() +
                          ": the text is malformed; the edited text is in " + leftText() + "\n"));
    EXPECT_THAT(vqtest::readFile(leftText()), HasSubstr("strong:c"));
    expectNothingDone();
}

TEST_F(EditMalformed, DoesNotSaveATextThatIsReadOnlyInPart) {
    const CommandResult result =
        edit("f() { printf '[Velquist]\\n\"a\"=string:x\\ry\\n' >\"$1\"; }; f", {"-y"});
    EXPECT_EQ(5, result.status) << result.err;
    EXPECT_NE("", leftText());
    expectNothingDone();
}

TEST_F(EditMalformed, DoesNotSaveAnEmptyText) {
    const CommandResult result = edit("truncate -s 0", {"-y"});
    ASSERT_NE("", leftText());
    EXPECT_EQ((CommandResult{5, "",
                             faults() + "vqreg: " + leftText() +
                                 ": the text has no key line; the edited text is in " + leftText() +
                                 "\n"}),
              result);
    expectNothingDone();
}

TEST_F(EditMalformed, KeepsTheTextWhenTheEditorFails) {
    const CommandResult result = edit("sh -c 'echo [Mine] > \"$0\"; exit 3'");
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("[Mine]\n", vqtest::readFile(leftText()));
    expectNothingDone();
}

TEST_F(EditMalformed, NoticesThatOthersHaveChangedTheFileMeanwhile) {
    const std::string mended = file.directory() + "/mended";
    std::ofstream(mended) << kMended;
    const std::string others[] = {
        "echo bad >>" + file.path(), "cp " + mended + " " + file.path(), "rm " + file.path(),
        std::string(VQREG_COMMAND_PATH) + " --file " + file.path() + " restore -f >/dev/null 2>&1"};
    for (const std::string& other : others) {
        file.write(kMalformed);
        const CommandResult result = edit("f() { " + other + "; " + kMend + " \"$1\"; }; f");
        EXPECT_EQ(1, result.status) << other << ": " << result.err;
        EXPECT_THAT(result.err,
                    HasSubstr("vqreg: " + file.path() +
                              " has changed meanwhile; nothing has been written; the edited text "
                              "is in " +
                              leftText() + "\n"));
        ASSERT_NE("", leftText());
        EXPECT_EQ(kMended, vqtest::readFile(leftText()));
        ASSERT_EQ(0, std::remove(leftText().c_str()));
        EXPECT_TRUE(!file.exists() || file.read() != kMended || other == others[1]) << other;
    }
}

// A process that has not looked at the malformed text must not write over the mended one.
TEST_F(EditMalformed, ReachesProcessesThatHaveAnOlderTree) {
    file.write(kMended);
    VQRegLib::CRegLib session(file.path().c_str(), nullptr, VQRegLib::CRegLib::eLocationDefault,
                              nullptr);
    file.write("[Velquist]\n\"Mine\"=dword 1\n");
    EXPECT_EQ(0, edit("sed -i 's/dword 1/dword:00000001/'").status);
    EXPECT_EQ(session.VQRegSetValue(*session.RootKey(), "Z", 1ul), VQRegLib::REGLIB_OK);
    EXPECT_THAT(file.read(), HasSubstr("\"Mine\"=dword:00000001\n"));
}

TEST_F(EditMalformed, OffersTheEditorAgainAtATerminal) {
    const std::string again = texts.directory() + "/again";
    TerminalProcess command =
        editAtTerminal("f() { if [ -e " + again + " ]; then " + kMend + " \"$1\"; else touch " +
                       again + "; echo >>\"$1\"; fi; sed -i '/^$/d' \"$1\"; [ -s " + again +
                       " ] || { echo x >" + again + "; echo '\"c\"=string:d' >>\"$1\"; }; }; f");
    command.expect("vqreg: Edit the text again? [y/N] ");
    expectNothingDone();
    command.type("y\n");
    command.expect("vqreg: Write this text? [y/N] ");
    expectNothingDone();
    command.type("y\n");
    EXPECT_EQ(0, command.finish().status);
    EXPECT_EQ(kMended + "\"c\"=string:d\n", file.read());
    EXPECT_EQ("", leftText());
}

TEST_F(EditMalformed, KeepsTheTextWithoutAYes) {
    TerminalProcess command = editAtTerminal(kMend);
    command.expect("vqreg: Write this text? [y/N] ");
    command.type("n\n");
    EXPECT_EQ(1, command.finish().status);
    EXPECT_EQ(kMended, vqtest::readFile(leftText()));
    expectNothingDone();
}

// The file may be well-formed too: nobody finds a text again that is not named.
TEST_F(EditMalformed, NamesTheTextWhenTheLockIsNotObtained) {
    file.write(kMended);
    TerminalProcess command = editAtTerminal("sed -i s/string:b/string:c/", {"--timeout", "0.2"});
    command.expect("vqreg: Make these changes? [y/N] ");
    VQRegLib::CRegLib session(file.path().c_str(), nullptr, VQRegLib::CRegLib::eLocationDefault,
                              nullptr);
    ASSERT_EQ(session.VQRegBeginUpdate(), VQRegLib::REGLIB_OK);
    command.type("y\n");
    const auto result = command.finish();
    EXPECT_EQ(session.VQRegEndUpdate(), VQRegLib::REGLIB_OK);
    EXPECT_EQ(6, result.status);
    ASSERT_NE("", leftText());
    EXPECT_THAT(result.screen, HasSubstr("\nvqreg: the edited text is in " + leftText() + "\n"));
    EXPECT_EQ(kMended, file.read());
}
