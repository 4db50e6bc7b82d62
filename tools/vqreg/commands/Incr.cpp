// vqreg incr: counts.
#include <cstdint>
#include <limits>
#include <memory>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/change/Changing.h"
#include "tools/vqreg/commands/CommandTable.h"
#include "tools/vqreg/terminal/Output.h"
#include "tools/vqreg/text/DataText.h"
#include "tools/vqreg/text/Difference.h"
#include "tools/vqreg/text/Path.h"
#include "tools/vqreg/text/Shown.h"

namespace vqreg {

namespace {

using VQRegLib::CRegLib;

struct IncrOptions {
    std::string key;
    std::string name;
    std::string by = "1";
};

std::int64_t parseStep(const std::string& text) {
    const bool isNegative = text.starts_with('-');
    const auto number = parseNumber(isNegative ? text.substr(1) : text);
    if (!number) {
        throw CommandError(eExit::eWrongKind,
                           fmt::format("BY must be a number from -4294967295 to 4294967295, in "
                                       "decimal or with 0x: \"{}\"",
                                       printable(text)));
    }
    return isNegative ? -std::int64_t{*number} : std::int64_t{*number};
}

std::int64_t numberOf(const Path& path, const Value& value) {
    if (value.type != CRegLib::eDword) {
        throw CommandError(eExit::eWrongKind,
                           fmt::format("{} is no number, its type is {}",
                                       nameOfValue(path, value.name), typeName(value.type)));
    }
    return value.number;
}

void incr(const IncrOptions& options, Context& context) {
    const std::int64_t by = parseStep(options.by);
    Changing changing(context, {});
    StoreSession& store = changing.store();
    const Path path = store.tidied(splitPath(options.key));
    changing.begin();
    const std::optional<Value> present = store.value(path, options.name);
    const std::int64_t number = (present ? numberOf(path, *present) : 0) + by;
    if (number < 0 || number > std::numeric_limits<std::uint32_t>::max()) {
        throw CommandError(eExit::eWrongKind,
                           fmt::format("{} would be {}, and a dword is from 0 to 4294967295",
                                       nameOfValue(path, options.name), number));
    }
    Value value;
    value.name = options.name;
    value.type = CRegLib::eDword;
    value.number = static_cast<std::uint32_t>(number);
    if (!present || !present->sameData(value)) {
        changing.record(
            {present ? Change::eKind::eChanged : Change::eKind::eCreated, path, present, value});
        store.set(path, value);
    }
    changing.print(std::to_string(number) + '\n');
    changing.finish();
}

}  // namespace

void defineIncr(CLI::App& command, Context& context) {
    const auto options = std::make_shared<IncrOptions>();
    command.add_option("KEY", options->key, "Path of the key")->required()->type_name("");
    command.add_option("NAME", options->name, "Name of the value")->required()->type_name("");
    command.add_option("BY", options->by, "What to add; 1 without it")->type_name("");
    command.footer(
        "BY may be negative. A value that is missing counts as 0, and is created with its key.");
    command.callback([options, &context] { incr(*options, context); });
}

}  // namespace vqreg
