// vqreg ls: lists a key.
#include <algorithm>
#include <memory>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/commands/CommandTable.h"
#include "tools/vqreg/store/StoreSession.h"
#include "tools/vqreg/terminal/Output.h"
#include "tools/vqreg/text/DataText.h"
#include "tools/vqreg/text/JsonData.h"
#include "tools/vqreg/text/Path.h"
#include "tools/vqreg/text/Shown.h"

namespace vqreg {

namespace {

struct LsOptions {
    std::string key = "/";
    bool recursive = false;
    bool large = false;
    bool json = false;
    bool zero = false;
};

struct Entry {
    std::string path;  // of the key, or of the key that the value belongs to; below the listed one
    const Value* value = nullptr;  // null for a key

    std::string name() const {
        if (!value) {
            return path + '/';
        }
        return path.empty() ? value->name : path + '/' + value->name;
    }
};

void collect(const Key& key, const std::string& path, bool recursive, std::vector<Entry>& entries) {
    for (const auto& entry : key.values) {
        entries.push_back({path, &entry.second});
    }
    for (const auto& entry : key.keys) {
        const std::string childPath =
            path.empty() ? entry.second.name : path + '/' + entry.second.name;
        entries.push_back({childPath, nullptr});
        if (recursive) {
            collect(entry.second, childPath, recursive, entries);
        }
    }
}

// `listed` is where the listed key is below the root key.
void printJson(const std::vector<Entry>& entries, const std::string& listed) {
    Json list = Json::array();
    for (const Entry& entry : entries) {
        const bool isInside = !listed.empty() && !entry.path.empty();
        const std::string key = listed + (isInside ? "/" : "") + entry.path;
        Json item{{"kind", entry.value ? "value" : "key"}, {"key", textForJson(key)}};
        if (entry.value) {
            item["name"] = textForJson(entry.value->name);
            item.update(jsonOf(*entry.value));
        }
        list.push_back(std::move(item));
    }
    Output::standard().json(list);
}

// Names go out as they are when a program reads them up to a NUL.
std::string styledName(const Entry& entry, const LsOptions& options) {
    const std::string name = options.zero ? entry.name() : printable(entry.name());
    return entry.value ? name : Output::standard().styled(eStyle::eKey, name);
}

void printText(const std::vector<Entry>& entries, const LsOptions& options) {
    Output& output = Output::standard();
    const char end = options.zero ? '\0' : '\n';
    std::size_t width = 0;
    for (const Entry& entry : entries) {
        width = std::max(width, printable(entry.name()).size());
    }
    for (const Entry& entry : entries) {
        if (!options.large) {
            output.line(styledName(entry, options), end);
            continue;
        }
        const std::string_view type = entry.value ? typeName(entry.value->type) : "key";
        std::string line = output.styled(eStyle::eType, type);
        line.append(8 - std::string_view(type).size(), ' ');
        line += styledName(entry, options);
        if (entry.value) {
            line.append(width + 2 - printable(entry.name()).size(), ' ');
            line += printable(dataText(*entry.value));
        }
        output.line(line, end);
    }
}

void ls(const LsOptions& options, Context& context) {
    StoreSession store(context.store);
    const Path path = store.tidied(splitPath(options.key));
    const auto key = store.load(path, options.recursive ? -1 : 1);
    if (!key) {
        throw CommandError(eExit::eNegative, nameOfKey(path) + " does not exist");
    }
    std::vector<Entry> entries;
    collect(*key, "", options.recursive, entries);
    if (options.json) {
        printJson(entries, plainPath(path));
    } else {
        printText(entries, options);
    }
}

}  // namespace

void defineLs(CLI::App& command, Context& context) {
    const auto options = std::make_shared<LsOptions>();
    command.add_flag("-R", options->recursive, "Everything below the key too");
    command.add_flag("-l", options->large, "With types and data");
    command.add_flag("--json", options->json, "As JSON, always with types and data");
    command.add_flag("-0", options->zero, "End each entry with a NUL");
    command.add_option("KEY", options->key, "Path of the key (default: the root key)")
        ->type_name("");
    command.callback([options, &context] { ls(*options, context); });
}

}  // namespace vqreg
