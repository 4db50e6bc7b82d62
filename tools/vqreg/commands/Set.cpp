// vqreg set: gives a value its data.
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

struct SetOptions {
    std::string key;
    std::string name;
    std::string data;
    std::string type;
    bool existing = false;
    std::optional<std::string> old;
    ReportOptions report;
};

std::optional<CRegLib::eDataType> givenType(const SetOptions& options) {
    for (const auto type : {CRegLib::eString, CRegLib::eDword, CRegLib::eBinary}) {
        if (options.type == typeName(type)) {
            return type;
        }
    }
    return std::nullopt;
}

Value parsed(const SetOptions& options, CRegLib::eDataType type, const Context& context) {
    if (context.batch && type == CRegLib::eBinary && options.data == "-") {
        throw CommandError(eExit::eUsage, "standard input holds the commands; name a file with @");
    }
    Value value;
    value.name = options.name;
    value.type = type;
    parseData(options.data, value);
    return value;
}

CRegLib::eDataType typeFor(const SetOptions& options, const std::optional<Value>& present) {
    const auto given = givenType(options);
    return given ? *given : present ? present->type : guessType(options.data);
}

// As data of the type that the value has.
bool isData(const Value& value, const std::string& text) {
    switch (value.type) {
        case CRegLib::eDword:
            return parseNumber(text) == value.number;
        case CRegLib::eBinary:
            return parseHex(text) == value.bytes;
        default:
            return text == value.bytes;
    }
}

void checkPresent(const SetOptions& options, const Path& path,
                  const std::optional<Value>& present) {
    if (!present && (options.existing || options.old)) {
        throw CommandError(eExit::eNegative, nameOfValue(path, options.name) + " does not exist");
    }
    if (options.old && !isData(*present, *options.old)) {
        throw CommandError(eExit::eNegative,
                           fmt::format("{} is \"{}\", not \"{}\"", nameOfValue(path, options.name),
                                       printable(dataText(*present)), printable(*options.old)));
    }
}

void set(const SetOptions& options, Context& context) {
    const bool isConditional = options.existing || options.old;
    if (isConditional) {
        context.store.create = false;
    }
    std::optional<Value> value;
    // Where the old data decide, they do so whatever the new ones are.
    if (const auto type = givenType(options); type && !isConditional) {
        value = parsed(options, *type, context);
    }
    Changing changing(context, options.report);
    StoreSession& store = changing.store();
    const Path path = store.tidied(splitPath(options.key));
    // Data may come from a slow input, for which no other process shall wait.
    if (!value) {
        const std::optional<Value> seen = store.value(path, options.name);
        checkPresent(options, path, seen);
        value = parsed(options, typeFor(options, seen), context);
    }
    changing.begin();
    const std::optional<Value> present = store.value(path, options.name);
    checkPresent(options, path, present);
    if (const auto type = typeFor(options, present); type != value->type) {
        value = parsed(options, type, context);
    }
    if (!present || !present->sameData(*value)) {
        const std::vector<Change> keys = createdKeys(store, path);
        if (!keys.empty()) {
            changing.tell("made " + nameOfKey(path));
        }
        changing.record(keys);
        changing.record(
            {present ? Change::eKind::eChanged : Change::eKind::eCreated, path, present, value});
        store.set(path, *value);
    }
    changing.finish();
}

void addArguments(CLI::App& command, SetOptions& options) {
    command.add_option("KEY", options.key, "Path of the key")->required()->type_name("");
    command.add_option("NAME", options.name, "Name of the value")->required()->type_name("");
    command
        .add_option("DATA", options.data,
                    "A text; a number in decimal or with 0x; binary data as hexadecimal digits, "
                    "@FILE, or - for standard input")
        ->required()
        ->type_name("");
}

}  // namespace

void defineSet(CLI::App& command, Context& context) {
    const auto options = std::make_shared<SetOptions>();
    command.add_option("-t,--type", options->type, "string, dword or binary")
        ->type_name("TYPE")
        ->check(CLI::IsMember({"string", "dword", "binary"}).description(""));
    command.add_flag("--existing", options->existing, "Only change a value that exists");
    command
        .add_option("--if", options->old,
                    "Only change a value that exists and has these data; binary data as "
                    "hexadecimal digits")
        ->type_name("OLD");
    addJsonOption(command, options->report);
    addArguments(command, *options);
    command.footer(
        "Without -t, a value that exists keeps its type. For a new one, DATA is a dword if it is "
        "0x\n"
        "with one to eight hexadecimal digits, or a decimal number from 0 to 4294967295 without\n"
        "leading zeros. Everything else is a string.");
    command.callback([options, &context] { set(*options, context); });
}

}  // namespace vqreg
