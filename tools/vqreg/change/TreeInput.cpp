#include "tools/vqreg/change/TreeInput.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/base/FileHandle.h"
#include "tools/vqreg/terminal/Output.h"
#include "tools/vqreg/text/Rules.h"

namespace vqreg {

namespace {

[[noreturn]] void failToRead(const std::string& name) {
    throw CommandError(eExit::eUnavailable, fmt::format("{}: {}", name, std::strerror(errno)));
}

std::string readAll(int fd, const std::string& name) {
    std::string text;
    char buffer[64 * 1024];
    for (;;) {
        const ssize_t size = ::read(fd, buffer, sizeof buffer);
        if (size == 0) {
            return text;
        }
        if (size > 0) {
            text.append(buffer, static_cast<std::size_t>(size));
        } else if (errno != EINTR) {
            failToRead(name);
        }
    }
}

void checkReadable(const std::string& file, const ConfigText& parsed) {
    if (!parsed.isReadable()) {
        throw CommandError(eExit::eMalformed, file + ": the text is malformed");
    }
}

ConfigText parsedPart(std::string_view text) {
    ConfigText parsed = parseConfigText(text);
    std::erase_if(parsed.findings, [](const Finding& finding) {
        return finding.kind == Finding::eKind::eMissingParent;
    });
    return parsed;
}

// Removes the key at the path from the tree and says whether anything else is there but the keys on
// the way to it.
bool takeKey(Key& top, const Names& path, Key& taken) {
    Key* key = &top;
    for (const std::string& name : path) {
        if (!key->values.empty() || key->keys.size() != 1 ||
            key->keys.begin()->first != folded(name)) {
            return false;
        }
        key = &key->keys.begin()->second;
    }
    taken = std::move(*key);
    return true;
}

}  // namespace

Names rootNames(const StoreOptions& options) {
    const std::string root = rootName(options);
    Names names;
    for (std::size_t begin = 0;;) {
        const std::size_t end = root.find_first_of("/\\", begin);
        names.push_back(root.substr(begin, end - begin));
        if (end == std::string::npos) {
            return names;
        }
        begin = end + 1;
    }
}

std::string readInput(const std::string& file) {
    if (file == "-") {
        return readAll(STDIN_FILENO, "standard input");
    }
    std::error_code error;
    if (std::filesystem::is_directory(file, error)) {
        throw CommandError(eExit::eUnavailable, file + ": is a directory, not a file");
    }
    const FileHandle handle(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
    if (!handle.isOpen()) {
        failToRead(file);
    }
    return readAll(handle.get(), file);
}

void printFindings(const std::string& file, const std::vector<Finding>& findings) {
    std::string lines;
    for (const Finding& finding : findings) {
        lines += format(file, finding) + "\n";
    }
    std::fputs(lines.c_str(), stderr);  // nobody can be told where this fails
}

Key parsedTop(const std::string& file, std::string_view text, bool isPart) {
    ConfigText parsed = isPart ? parsedPart(text) : parseConfigText(text);
    printFindings(file, parsed.findings);
    checkReadable(file, parsed);
    return std::move(parsed.top);
}

const Key* findKey(const Key& top, const Names& path) {
    const Key* key = &top;
    for (const std::string& name : path) {
        const auto found = key->keys.find(folded(name));
        if (found == key->keys.end()) {
            return nullptr;
        }
        key = &found->second;
    }
    return key;
}

Key topAround(const Names& path, Key key) {
    for (auto name = path.rbegin(); name != path.rend(); ++name) {
        key.name = *name;
        Key above;
        above.keys.emplace(folded(*name), std::move(key));
        key = std::move(above);
    }
    return key;
}

void checkClean(const std::string& file, const ConfigText& parsed) {
    checkReadable(file, parsed);
    if (std::any_of(parsed.findings.begin(), parsed.findings.end(), [](const Finding& finding) {
            return finding.kind == Finding::eKind::eTruncated;
        })) {
        throw CommandError(eExit::eWrongKind,
                           file + ": the text holds what a configuration file cannot give back");
    }
}

PlacedTree placedTree(const StoreOptions& options, const std::string& file, std::string_view text,
                      const Names& path, const std::string& advice) {
    ConfigText parsed = parsedPart(text);
    printFindings(file, parsed.findings);
    checkClean(file, parsed);
    Key top = std::move(parsed.top);
    PlacedTree tree{path, {}, !top.keys.empty()};
    Names full = rootNames(options);
    full.insert(full.end(), path.begin(), path.end());
    const bool isEmpty = top.keys.empty() && top.values.empty();
    if (!isEmpty && !takeKey(top, full, tree.key)) {
        std::string name;
        for (const std::string& each : full) {
            name += (name.empty() ? "" : "/") + each;
        }
        throw CommandError(eExit::eWrongKind,
                           fmt::format("{}: the text has more than the key [{}]; {}", file,
                                       printable(name), advice));
    }
    return tree;
}

void checkRules(const StoreOptions& options, const PlacedTree& tree) {
    const std::vector<std::string> broken =
        brokenRulesOfTree(rootName(options), tree.path, tree.key);
    if (broken.empty()) {
        return;
    }
    for (std::size_t i = 0; i + 1 < broken.size(); ++i) {
        note(broken[i]);
    }
    throw CommandError(eExit::eWrongKind, broken.back());
}

void printChanges(const std::vector<Change>& changes, const Names& above, bool json,
                  const Names& root) {
    Output& output = Output::standard();
    for (const Change& change : changes) {
        if (json) {
            output.json(jsonOf(change, root), -1);
            continue;
        }
        const eStyle style = change.kind == Change::eKind::eCreated   ? eStyle::eAdded
                             : change.kind == Change::eKind::eDeleted ? eStyle::eRemoved
                                                                      : eStyle::eChanged;
        output.line(output.styled(style, lineOf(change, above)));
    }
}

void applyChanges(StoreSession& session, const std::vector<Change>& changes,
                  const std::function<void()>& done) {
    for (const bool deletes : {true, false}) {
        for (const Change& change : changes) {
            if ((change.kind == Change::eKind::eDeleted) != deletes) {
                continue;
            }
            if (change.isOfKey()) {
                // A key takes all that is below it along; nothing is left to do for that later.
                deletes ? static_cast<void>(session.removeKey(change.path))
                        : session.createKey(change.path);
            } else if (deletes) {
                session.removeValue(change.path, change.value().name);
            } else {
                session.set(change.path, *change.after);
            }
            done();
        }
    }
}

}  // namespace vqreg
