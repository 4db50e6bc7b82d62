// vqreg tree: draws what is below a key.
#include <langinfo.h>

#include <memory>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/commands/CommandTable.h"
#include "tools/vqreg/store/StoreSession.h"
#include "tools/vqreg/terminal/Output.h"
#include "tools/vqreg/text/DataText.h"
#include "tools/vqreg/text/JsonText.h"
#include "tools/vqreg/text/Path.h"
#include "tools/vqreg/text/Shown.h"

namespace vqreg {

namespace {

struct TreeOptions {
    std::string key = "/";
    int levels = -1;
    bool json = false;
};

struct Branches {
    const char* middle;
    const char* last;
    const char* through;
};

Branches branches() {
    if (std::string_view(nl_langinfo(CODESET)) == "UTF-8") {
        return {"├── ", "└── ", "│   "};
    }
    return {"|-- ", "`-- ", "|   "};
}

class Drawing {
public:
    void draw(const Key& key) {
        std::size_t left = key.values.size() + key.keys.size();
        Output& output = Output::standard();
        for (const auto& entry : key.values) {
            const Value& value = entry.second;
            output.line(m_indent + (--left == 0 ? m_branches.last : m_branches.middle) +
                        printable(value.name) + " (" +
                        output.styled(eStyle::eType, typeName(value.type)) +
                        "): " + printable(dataText(value)));
        }
        for (const auto& entry : key.keys) {
            const bool isLast = --left == 0;
            output.line(m_indent + (isLast ? m_branches.last : m_branches.middle) +
                        output.styled(eStyle::eKey, printable(entry.second.name) + '/'));
            const std::size_t size = m_indent.size();
            m_indent += isLast ? "    " : m_branches.through;
            draw(entry.second);
            m_indent.resize(size);
        }
    }

private:
    const Branches m_branches = branches();
    std::string m_indent;
};

void tree(const TreeOptions& options, Context& context) {
    StoreSession store(context.store);
    const Path path = store.tidied(splitPath(options.key));
    const auto key = store.load(path, options.levels);
    if (!key) {
        throw CommandError(eExit::eNegative, nameOfKey(path) + " does not exist");
    }
    Output& output = Output::standard();
    if (options.json) {
        output.write(composeJsonText(*key, plainPath(path)));
        return;
    }
    output.line(output.styled(eStyle::eKey, printable(key->name) + '/'));
    Drawing().draw(*key);
}

}  // namespace

void defineTree(CLI::App& command, Context& context) {
    const auto options = std::make_shared<TreeOptions>();
    command.add_option("-L", options->levels, "Only so many levels below the key")
        ->type_name("N")
        ->check(CLI::Range(1, 100000).description(""));
    command.add_flag("--json", options->json, "As JSON");
    command.add_option("KEY", options->key, "Path of the key (default: the root key)")
        ->type_name("");
    command.callback([options, &context] { tree(*options, context); });
}

}  // namespace vqreg
