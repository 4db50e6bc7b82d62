// vqreg notify: after a change of the file by other means than the library.
#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/commands/CommandTable.h"
#include "tools/vqreg/store/StoreFault.h"
#include "tools/vqreg/store/StoreFile.h"
#include "tools/vqreg/store/StoreSession.h"
#include "tools/vqreg/store/StoreText.h"
#include "tools/vqreg/store/WholeFile.h"
#include "tools/vqreg/terminal/Listing.h"
#include "tools/vqreg/text/ConfigText.h"

namespace vqreg {

namespace {

CommandError toldNobody(eExit code, const std::string& why) {
    return {code, why + "; nobody has been told"};
}

// Who changes a file by hand may spoil it, and nobody shall be told to read such a file.
StoreOptions checkedStore(const StoreOptions& options) {
    const std::string file = storeFile(options);
    if (const auto hint = lostTextHint(file)) {
        throw toldNobody(eExit::eUnavailable, file + ": " + *hint);
    }
    const std::optional<std::string> text = readStoreFileIfAny(file, rootName(options));
    if (!text) {
        throw toldNobody(eExit::eUnavailable, file + ": the file does not exist");
    }
    const ConfigText parsed = parseConfigText(*text);
    printFindings(file, parsed.findings);
    if (!parsed.isReadable()) {
        throw toldNobody(eExit::eMalformed, file + ": the text is malformed");
    }
    if (parsed.top.keys.empty()) {
        const CommandError fault = missingRootFault(file, rootName(options), *text);
        throw toldNobody(fault.code(), fault.what());
    }
    // Another root key is as good: the file is what they shall read.
    return wholeFile(options, parsed.top);
}

void notifyAll(const StoreOptions& options) {
    StoreSession session(checkedStore(options));
    session.reload();
    session.announce();
}

}  // namespace

void defineNotify(CLI::App& command, Context& context) {
    command.footer(
        "A file that is malformed is not announced: its faults are printed as `check` does. What\n"
        "only the memory of a process has stays there: a value that was deleted by hand may come\n"
        "back with the next change of such a process.");
    command.callback([&context] { notifyAll(context.store); });
}

}  // namespace vqreg
