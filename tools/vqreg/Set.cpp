// vqreg set: gives a value its data.
#include <memory>

#include "tools/vqreg/Commands.h"
#include "tools/vqreg/DataInput.h"
#include "tools/vqreg/Output.h"

namespace vqreg {

namespace {

using VQRegLib::CRegLib;

struct SetOptions {
    std::string key;
    std::string name;
    std::string data;
    std::string type;
};

CRegLib::eDataType typeOf(const SetOptions& options) {
    for (const auto type : {CRegLib::eString, CRegLib::eDword, CRegLib::eBinary}) {
        if (options.type == typeName(type)) {
            return type;
        }
    }
    return guessType(options.data);
}

void set(const SetOptions& options, Context& context) {
    Value value;
    value.name = options.name;
    value.type = typeOf(options);
    parseData(options.data, value);
    const Path path = splitPath(options.key);
    if (StoreSession(context.store).set(path, value)) {
        note("made " + nameOfKey(path));
    }
}

}  // namespace

void addSet(CLI::App& app, Context& context) {
    const auto options = std::make_shared<SetOptions>();
    CLI::App* const command =
        app.add_subcommand("set", "Set a value; the key is created when it is missing");
    command->add_option("-t,--type", options->type, "string, dword or binary")
        ->type_name("TYPE")
        ->check(CLI::IsMember({"string", "dword", "binary"}).description(""));
    command->add_option("KEY", options->key, "Path of the key")->required()->type_name("");
    command->add_option("NAME", options->name, "Name of the value")->required()->type_name("");
    command
        ->add_option("DATA", options->data,
                     "A text; a number in decimal or with 0x; binary data as hexadecimal digits, "
                     "@FILE, or - for standard input")
        ->required()
        ->type_name("");
    command->footer(
        "Without -t, DATA is a dword if it is 0x with one to eight hexadecimal digits, or a "
        "decimal\n"
        "number from 0 to 4294967295 without leading zeros. Everything else is a string.");
    command->callback([options, &context] { set(*options, context); });
}

}  // namespace vqreg
