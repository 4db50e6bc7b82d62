#include "tools/vqreg/usage/UsageFault.h"

#include <map>
#include <optional>
#include <string_view>
#include <vector>

#include "tools/vqreg/terminal/Output.h"
#include "tools/vqreg/text/Model.h"
#include "tools/vqreg/text/Path.h"
#include "tools/vqreg/text/Shown.h"

namespace vqreg {

namespace {

// "#" stands for what differs from fault to fault: in `pattern` for all up to the next literal text,
// in `plain`, with a digit, for what the pattern's first, second... one stood for.
struct Wording {
    std::string_view pattern;
    std::string_view plain;
};

// The first one that fits counts.
constexpr Wording kWordings[] = {
    {"# is required", "#0 is required"},
    {"# excludes #", "#0 and #1 exclude each other"},
    {"# requires #", "#0 needs #1 too"},
    {"#: 1 required TEXT missing", "#0 needs something behind it"},
    {"#: 1 required # missing", "#0 needs #1 behind it"},
    {"#: At Most 1 required but received #", "#0 is given #1 times; once is right"},
    {"#:  not in {#}", "#0 needs one of #1"},
    {"#: # not in {#}", "#0 needs one of #2, not \"#1\""},
    {"#: Value # not in range # to #", "#0 needs a number from #2 to #3, not \"#1\""},
    {"#: Should be true/false or a number", "#0 takes nothing behind a \"=\""},
    {"# was given a disallowed flag override", "#0 takes nothing behind a \"=\""},
    {"Could not convert: # = #", "#0 cannot be \"#1\""},
    {"The value # is not an allowed value for #", "#1 cannot be \"#0\""},
    {"#: #", "#0 #1"},
};

using Parts = std::vector<std::string>;

// What the signs in the pattern stand for; none when it does not fit.
std::optional<Parts> fit(const std::string& text, std::string_view pattern) {
    Parts parts;
    std::size_t at = 0;
    while (!pattern.empty()) {
        const bool isOpen = pattern.front() == '#';
        pattern.remove_prefix(isOpen ? 1 : 0);
        const std::string_view literal = pattern.substr(0, pattern.find('#'));
        pattern.remove_prefix(literal.size());
        const std::size_t found = pattern.empty() && text.size() >= at + literal.size()
                                      ? text.size() - literal.size()
                                      : text.find(literal, at);
        if (found == std::string::npos || (!isOpen && found != at) ||
            text.compare(found, literal.size(), literal) != 0) {
            return std::nullopt;
        }
        if (isOpen) {
            parts.push_back(text.substr(at, found - at));
        }
        at = found + literal.size();
    }
    return parts;
}

std::string fill(std::string_view plain, const Parts& parts) {
    std::string text;
    for (std::size_t at = 0; at < plain.size(); ++at) {
        if (plain[at] == '#') {
            text += parts.at(static_cast<std::size_t>(plain[++at] - '0'));
        } else {
            text += plain[at];
        }
    }
    return text;
}

}  // namespace

std::string plainFault(const std::string& text) {
    const std::string shown = printable(text);
    for (const Wording& wording : kWordings) {
        if (const auto parts = fit(shown, wording.pattern)) {
            return fill(wording.plain, *parts);
        }
    }
    return "the command line cannot be understood";
}

std::string commandMeant(const std::string& word) {
    static const std::map<std::string, std::string> kMeant = {
        {"add", "set"},          {"backup", "export"}, {"cat", "get"},      {"cleanup", "clean"},
        {"compare", "diff"},     {"copy", "cp"},       {"create", "mkkey"}, {"del", "rm"},
        {"delete", "rm"},        {"dir", "ls"},        {"dump", "export"},  {"erase", "rm"},
        {"exec", "run"},         {"follow", "watch"},  {"lint", "check"},   {"list", "ls"},
        {"load", "import"},      {"man", "help"},      {"mkdir", "mkkey"},  {"modify", "edit"},
        {"monitor", "watch"},    {"move", "mv"},       {"new", "mkkey"},    {"print", "get"},
        {"put", "set"},          {"query", "get"},     {"read", "get"},     {"reload", "notify"},
        {"remove", "rm"},        {"rename", "mv"},     {"replace", "set"},  {"revert", "restore"},
        {"rollback", "restore"}, {"save", "export"},   {"show", "get"},     {"stat", "info"},
        {"status", "info"},      {"undo", "restore"},  {"unset", "rm"},     {"update", "set"},
        {"validate", "check"},   {"verify", "check"},  {"write", "set"}};
    const auto found = kMeant.find(folded(word));
    return found == kMeant.end() ? std::string() : found->second;
}

}  // namespace vqreg
