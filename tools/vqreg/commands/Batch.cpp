// vqreg batch: several commands as one update.
#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/base/FileText.h"
#include "tools/vqreg/change/Changing.h"
#include "tools/vqreg/commands/CommandTable.h"
#include "tools/vqreg/terminal/Output.h"
#include "tools/vqreg/text/Difference.h"
#include "tools/vqreg/text/Words.h"
#include "tools/vqreg/usage/Usage.h"

namespace vqreg {

namespace {

struct Line {
    std::size_t number = 0;
    std::vector<std::string> words;

    CommandError fault(eExit code, const std::string& message) const {
        return {code, fmt::format("line {}: {}; nothing has been changed", number, message)};
    }
};

std::vector<Line> readLines() {
    const std::string text = readInput("-");
    std::vector<Line> lines;
    Line line;
    for (std::size_t begin = 0; begin < text.size();) {
        ++line.number;
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        std::string_view piece(text.data() + begin, end - begin);
        if (piece.ends_with('\r')) {
            piece.remove_suffix(1);
        }
        begin = end + 1;
        try {
            line.words = wordsOf(piece);
        } catch (const CommandError& error) {
            throw line.fault(error.code(), error.what());
        }
        if (!line.words.empty()) {
            lines.push_back(line);
        }
    }
    return lines;
}

// For one line: what an option was set to would stay for the next one.
void runLine(const Line& line, Context& context) {
    CLI::App app("", "vqreg");
    app.require_subcommand(1);
    app.set_help_flag();
    for (const CommandEntry& entry : commandTable()) {
        if (entry.isForBatch) {
            addCommand(app, entry, context).set_help_flag();
        }
    }
    try {
        app.parse(parserOrder(line.words));
    } catch (const CLI::ParseError& error) {
        throw line.fault(eExit::eUsage, explain(app, error));
    } catch (const CommandError& error) {
        throw line.fault(error.code(), error.what());
    }
}

Changing::eDeletes deletesOf(const std::vector<Line>& lines) {
    const bool mayDelete = std::ranges::any_of(lines, [](const Line& line) {
        return std::ranges::any_of(commandTable(), [&](const CommandEntry& entry) {
            return entry.mayDelete && entry.name == line.words.front();
        });
    });
    return mayDelete ? Changing::eDeletes::eMaybe : Changing::eDeletes::eNo;
}

bool isStillThere(StoreSession& store, const Change& change) {
    try {
        return change.isOfKey() ? store.hasKey(change.path)
                                : store.value(change.path, change.value().name).has_value();
    } catch (const CommandError&) {
        return false;  // a key in the place of a value, or the other way round
    }
}

// What one line deleted and a later one made again is not deleted.
std::vector<Change> lasting(StoreSession& store, std::vector<Change> changes) {
    std::erase_if(changes, [&](const Change& change) {
        return change.kind == Change::eKind::eDeleted && isStillThere(store, change);
    });
    return changes;
}

void runBatch(Context& context, const ReportOptions& options) {
    const std::vector<Line> lines = readLines();
    if (lines.empty()) {
        return;
    }
    Changing changing(context, options, deletesOf(lines));
    changing.begin();
    Batch batch{changing.store(), {}, {}, {}};
    Context inner = context;
    inner.batch = &batch;
    for (const Line& line : lines) {
        runLine(line, inner);
    }
    changing.record(lasting(changing.store(), std::move(batch.changes)));
    changing.print(batch.output);
    for (const std::string& remark : batch.remarks) {
        changing.tell(remark);
    }
    changing.finish();
}

}  // namespace

void defineBatch(CLI::App& command, Context& context) {
    const auto options = std::make_shared<ReportOptions>();
    addVerifyOption(command, *options);
    command.footer(
        "One command a line, as behind \"vqreg\": set, incr, rm, mkkey, cp and mv. Words are "
        "quoted as\n"
        "in a shell, # begins a comment. When a line fails nothing at all is changed, and the "
        "message\n"
        "has its number. Nothing is asked.");
    command.callback([options, &context] { runBatch(context, *options); });
}

}  // namespace vqreg
