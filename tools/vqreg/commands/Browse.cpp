// vqreg browse: starts the program that shows a store on the screen.
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/commands/CommandTable.h"
#include "tools/vqreg/terminal/Output.h"
#include "tools/vqreg/text/Shown.h"
#include "tools/vqreg/usage/BrowseRequest.h"

namespace vqreg {

namespace {

// Beside the command in a build, else where it is installed, which is told from where the command
// itself is: the whole of an installation may be moved.
std::string findProgram() {
    namespace fs = std::filesystem;
    std::error_code error;
    const fs::path here = fs::read_symlink("/proc/self/exe", error).parent_path();
    const fs::path beside = here / "vqreg-browse";
    return ::access(beside.c_str(), X_OK) == 0
               ? beside.string()
               : (here / VQREG_BROWSE_FROM_BIN).lexically_normal().string();
}

void browse(const Context& context, const std::string& key) {
    const std::string program = findProgram();
    BrowseRequest request;
    request.store = context.store;
    request.isColored = Output::standard().isColored();
    request.key = key;
    std::vector<std::string> words = request.arguments();
    words.insert(words.begin(), program);
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    ::execv(program.c_str(), arguments.data());
    const int error = errno;
    throw CommandError(
        eExit::eUnavailable,
        error == ENOENT
            ? fmt::format("{} is not installed; Debian has it in the package vqreg-browse",
                          printable(program))
            : fmt::format("{}: {}", printable(program), std::strerror(error)));
}

}  // namespace

void defineBrowse(CLI::App& command, Context& context) {
    const auto key = std::make_shared<std::string>("/");
    command.add_option("KEY", *key, "The key to begin with; without it, the root key")
        ->type_name("");
    command.footer(
        "Keys on the left, values on the right. Arrows move, Tab changes the side, Enter opens a\n"
        "key or edits a value, / searches, u undoes, q ends, and ? tells the other keys. What\n"
        "others change is marked. A program of its own, in the package vqreg-browse.");
    command.callback([key, &context] { browse(context, *key); });
}

}  // namespace vqreg
