// vqreg mkkey: creates a key.
#include <memory>

#include "tools/vqreg/change/Changing.h"
#include "tools/vqreg/commands/CommandTable.h"
#include "tools/vqreg/text/Path.h"

namespace vqreg {

void defineMkkey(CLI::App& command, Context& context) {
    const auto key = std::make_shared<std::string>();
    command.add_option("KEY", *key, "Path of the key")->required()->type_name("");
    command.callback([key, &context] {
        Changing changing(context, {});
        changing.store().createKey(splitPath(*key));
        changing.finish();
    });
}

}  // namespace vqreg
