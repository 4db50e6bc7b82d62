// vqreg get: prints one value.
#include <algorithm>
#include <cctype>
#include <cstring>
#include <memory>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/commands/CommandTable.h"
#include "tools/vqreg/store/StoreSession.h"
#include "tools/vqreg/terminal/Output.h"
#include "tools/vqreg/text/DataText.h"
#include "tools/vqreg/text/JsonData.h"
#include "tools/vqreg/text/Path.h"
#include "tools/vqreg/text/Shown.h"
#include "tools/vqreg/usage/Usage.h"

namespace vqreg {

namespace {

struct GetOptions {
    std::string key;
    std::optional<std::string> name;
    bool type = false;
    bool raw = false;
    bool json = false;
    bool zero = false;
    std::optional<std::string> fallback;
};

void print(const Value& value, const GetOptions& options) {
    Output& output = Output::standard();
    if (options.json) {
        output.json(jsonOf(value));
    } else if (options.type) {
        output.line(typeName(value.type), options.zero ? '\0' : '\n');
    } else if (options.raw) {
        output.write(value.type == VQRegLib::CRegLib::eBinary ? value.bytes : dataText(value));
    } else {
        output.line(dataText(value), options.zero ? '\0' : '\n');
    }
}

// Throws when there is none.
Value storedValue(const GetOptions& options, const Context& context) {
    StoreSession store(context.store);
    const Path path = splitPath(options.key);
    if (auto value = store.value(path, *options.name)) {
        return std::move(*value);
    }
    const std::string key = nameOfKey(path);
    throw CommandError(eExit::eNegative,
                       store.hasKey(path)
                           ? fmt::format("{} has no value \"{}\"", key, printable(*options.name))
                           : key + " does not exist");
}

// As a person would have to type it.
std::string shellWord(const std::string& text) {
    const bool isPlain =
        !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) {
            return std::isalnum(c) != 0 || std::strchr("/._-+:,@%", c) != nullptr;
        });
    if (isPlain) {
        return text;
    }
    std::string quoted = "'";
    for (const char c : text) {
        quoted += c == '\'' ? "'\\''" : std::string(1, c);
    }
    return printable(quoted + "'");
}

// The last name of the path may be that of the value.
CommandError nameIsMissing(const GetOptions& options, const Context& context) {
    const std::string message = "NAME is required";
    Path path = splitPath(options.key);
    if (!path.empty()) {
        const std::string name = path.back();
        path.pop_back();
        try {
            if (StoreSession(context.store).value(path, name)) {
                return {eExit::eUsage, fmt::format("{}; did you mean \"vqreg get {} {}\"?", message,
                                                   shellWord(joinPath(path)), shellWord(name))};
            }
        } catch (const CommandError&) {
            // Whatever is wrong with the store, what is wrong with the command line comes first.
        }
    }
    return {eExit::eUsage, message};
}

void get(const GetOptions& options, const Context& context) {
    if (!options.name) {
        throw nameIsMissing(options, context);
    }
    try {
        print(storedValue(options, context), options);
    } catch (const CommandError& error) {
        if (error.code() != eExit::eNegative || !options.fallback) {
            throw;
        }
        Value value;
        value.type = VQRegLib::CRegLib::eString;
        value.bytes = *options.fallback;
        print(value, options);
    }
}

}  // namespace

void defineGet(CLI::App& command, Context& context) {
    const auto options = std::make_shared<GetOptions>();
    CLI::Option* const type =
        command.add_flag("--type", options->type, "Print the type instead of the data");
    command
        .add_flag("--raw", options->raw,
                  "Print the data as they are, without a line end; binary data as bytes")
        ->excludes(type);
    command
        .add_option("--default", options->fallback,
                    "What to print when the key or the value does not exist")
        ->type_name("V");
    command.add_flag("--json", options->json, "Print type and data as JSON");
    command.add_flag("-0", options->zero, "End the line with a NUL");
    command.add_option("KEY", options->key, "Path of the key")->required()->type_name("");
    // Not required: what is missing may be behind the last "/" of the key.
    command.add_option("NAME", options->name, "Name of the value")->type_name("");
    setUsage(command, "get [--type] [--raw] [--default V] [--json] [-0] KEY NAME");
    command.callback([options, &context] { get(*options, context); });
}

}  // namespace vqreg
