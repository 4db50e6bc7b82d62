// vqreg check: every fault of a configuration file.
#include <fmt/format.h>

#include <memory>

#include "tools/vqreg/base/FileText.h"
#include "tools/vqreg/commands/CommandTable.h"
#include "tools/vqreg/store/StoreFile.h"
#include "tools/vqreg/store/StoreText.h"
#include "tools/vqreg/terminal/Output.h"
#include "tools/vqreg/text/ConfigText.h"

namespace vqreg {

namespace {

struct CheckOptions {
    std::optional<std::string> file;
    bool json = false;
};

Json jsonOf(const std::string& file, const Finding& finding) {
    return {{"file", file},
            {"line", finding.line},
            {"column", finding.column},
            {"severity", finding.isError ? "error" : "warning"},
            {"what", finding.what},
            {"mend", finding.mend}};
}

void runCheck(Context& context, const CheckOptions& options) {
    const std::string file = options.file ? *options.file : storeFile(context.store);
    const ConfigText parsed = parseConfigText(
        options.file ? readInput(file) : readStoreFile(file, rootName(context.store)));
    Output& output = Output::standard();
    for (const Finding& finding : parsed.findings) {
        if (options.json) {
            output.json(jsonOf(file, finding), -1);
        } else {
            output.line(output.styled(finding.isError ? eStyle::eFault : eStyle::eChanged,
                                      format(file, finding)));
        }
    }
    context.exitCode = parsed.findings.empty() ? 0 : 1;
}

}  // namespace

void defineCheck(CLI::App& command, Context& context) {
    const auto options = std::make_shared<CheckOptions>();
    command
        .add_option("FILE", options->file,
                    "The file; - is standard input; without it, the file of the store")
        ->type_name("");
    command.add_flag("--json", options->json, "One JSON object per line");
    command.footer(
        "An error makes every operation of every process fail until it is mended. After a warning\n"
        "the library goes on, but reads something that hardly anybody means.\n"
        "Exit codes: 0 no findings, 1 findings.");
    command.callback([&context, options] { runCheck(context, *options); });
}

}  // namespace vqreg
