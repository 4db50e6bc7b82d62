#include "tools/vqreg/usage/Usage.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <vector>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/terminal/Output.h"
#include "tools/vqreg/text/Environment.h"
#include "tools/vqreg/text/Shown.h"
#include "tools/vqreg/usage/UsageFault.h"

namespace vqreg {

namespace {

std::map<std::string, std::string>& fixedUsages() {
    static std::map<std::string, std::string> usages;
    return usages;
}

class Formatter : public CLI::Formatter {
public:
    std::string make_usage(const CLI::App* app, std::string /*name*/) const override {
        return "usage: " + usageLine(*app) + "\n";
    }

    // The usage line tells what is required, and the texts what excludes what.
    std::string make_option_opts(const CLI::Option* option) const override {
        const bool takesText = !option->get_positional() && option->get_items_expected_max() > 0;
        return takesText ? ' ' + option->get_type_name() : "";
    }
};

std::string usageOf(const CLI::Option& option) {
    std::string text = option.get_positional() ? option.get_single_name() : option.get_name();
    if (!option.get_positional()) {
        text = text.substr(0, text.find(','));
        if (option.get_items_expected_max() > 0) {
            text += ' ' + option.get_type_name();
        }
    }
    return option.get_required() ? text : '[' + text + ']';
}

// Letters to insert, remove, replace or swap with their neighbour.
std::size_t distance(const std::string& left, const std::string& right) {
    std::vector<std::vector<std::size_t>> steps(left.size() + 1,
                                                std::vector<std::size_t>(right.size() + 1));
    for (std::size_t i = 0; i <= left.size(); ++i) {
        for (std::size_t j = 0; j <= right.size(); ++j) {
            if (i == 0 || j == 0) {
                steps[i][j] = i + j;
                continue;
            }
            const std::size_t replaced = left[i - 1] == right[j - 1] ? 0 : 1;
            steps[i][j] = std::min(
                {steps[i - 1][j] + 1, steps[i][j - 1] + 1, steps[i - 1][j - 1] + replaced});
            if (i > 1 && j > 1 && left[i - 1] == right[j - 2] && left[i - 2] == right[j - 1]) {
                steps[i][j] = std::min(steps[i][j], steps[i - 2][j - 2] + 1);
            }
        }
    }
    return steps[left.size()][right.size()];
}

// Empty when nothing is near.
std::string nearest(const std::string& word, const std::vector<std::string>& candidates) {
    std::string best;
    if (word.size() <= 2) {
        return best;  // everything is near to an option of one letter
    }
    std::size_t bestDistance = std::max<std::size_t>(2, word.size() / 3) + 1;
    for (const std::string& candidate : candidates) {
        const std::size_t steps = distance(word, candidate);
        if (steps < bestDistance && steps < candidate.size()) {
            best = candidate;
            bestDistance = steps;
        }
    }
    return best;
}

std::string withSuggestion(const std::string& message, const std::string& suggestion) {
    return suggestion.empty() ? message : message + "; did you mean \"" + suggestion + "\"?";
}

std::vector<std::string> commandNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* const command :
         app.get_subcommands([](const CLI::App*) { return true; })) {
        if (!command->get_group().empty()) {
            names.push_back(command->get_name());
        }
    }
    return names;
}

std::vector<std::string> optionNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* at = &app; at; at = at->get_parent()) {
        for (const CLI::Option* const option :
             at->get_options([](const CLI::Option*) { return true; })) {
            for (const std::string& name : option->get_lnames()) {
                names.push_back("--" + name);
            }
            for (const std::string& name : option->get_snames()) {
                names.push_back("-" + name);
            }
        }
    }
    return names;
}

std::string explainUnknown(const CLI::App& app, const std::string& word) {
    const CLI::App& command = chosen(app);
    const std::string shown = '"' + printable(word) + '"';
    if (word.size() > 1 && word[0] == '-') {
        const std::string name = word.substr(0, word.find('='));
        const std::string suggestion = nearest(name, optionNames(command));
        if (suggestion.empty()) {
            return "unknown option " + shown + "; write -- before arguments that begin with \"-\"";
        }
        return withSuggestion("unknown option " + shown, suggestion);
    }
    if (&command == &app) {
        return unknownCommand(app, word);
    }
    return "one argument too many: " + shown;
}

}  // namespace

std::string unknownCommand(const CLI::App& app, const std::string& word) {
    const std::vector<std::string> commands = commandNames(app);
    const std::string meant = commandMeant(word);
    const bool isThere = std::find(commands.begin(), commands.end(), meant) != commands.end();
    return withSuggestion("unknown command \"" + printable(word) + '"',
                          isThere ? meant : nearest(word, commands));
}

void setUsage(CLI::App& app, const std::string& line) {
    fixedUsages()[app.get_name()] = line;
}

std::string usageLine(const CLI::App& app) {
    if (!app.get_parent()) {
        return "vqreg [--file FILE] [--root NAME] [--timeout S] [--no-notify] [--sync] "
               "[--color WHEN] COMMAND ...";
    }
    const auto fixed = fixedUsages().find(app.get_name());
    if (fixed != fixedUsages().end()) {
        return "vqreg " + fixed->second;
    }
    std::string line = "vqreg " + app.get_name();
    for (const bool positional : {false, true}) {
        for (const CLI::Option* const option :
             app.get_options([](const CLI::Option*) { return true; })) {
            if (option->get_positional() == positional && option != app.get_help_ptr()) {
                line += ' ' + usageOf(*option);
            }
        }
    }
    return line;
}

// CLI11 would take the argument behind "--option=" for the option's text, and "++" for the end of a
// command's arguments.
std::vector<std::string> parserOrder(const std::vector<std::string>& words) {
    std::vector<std::string> arguments;
    bool mayBeOption = true;
    for (const std::string& word : words) {
        mayBeOption = mayBeOption && word != "--";
        if (mayBeOption && word == "++") {
            throw CommandError(eExit::eUsage, "write -- before \"++\"");
        }
        const bool isEmptyText = mayBeOption && word.size() > 3 && word.starts_with("--") &&
                                 word.find('=') == word.size() - 1;
        arguments.push_back(isEmptyText ? word.substr(0, word.size() - 1) : word);
        if (isEmptyText) {
            arguments.emplace_back();
        }
    }
    std::reverse(arguments.begin(), arguments.end());
    return arguments;
}

std::optional<std::string> commandWord(const CLI::App& app, const std::vector<std::string>& words) {
    for (auto word = words.begin(); word != words.end() && *word != "--"; ++word) {
        if (!word->starts_with('-')) {
            return *word;
        }
        const CLI::Option* const option = app.get_option_no_throw(*word);
        if (option && option->get_items_expected_max() > 0 && ++word == words.end()) {
            break;
        }
    }
    return std::nullopt;
}

CLI::Validator secondsRule() {
    return CLI::Validator(
        [](const std::string& text) {
            char* end = nullptr;
            const double seconds = std::strtod(text.c_str(), &end);
            const bool isNumber = !text.empty() && *end == '\0';
            return isNumber && seconds >= 0 && seconds <= 1e6
                       ? ""
                       : "must be a number from 0 to 1000000, not \"" + text + '"';
        },
        "");
}

CLI::Option* addPrefixOption(CLI::App& command, std::string& prefix) {
    return command.add_option("--prefix", prefix, "What all names of variables begin with")
        ->type_name("P")
        ->check(CLI::Validator(
            [](const std::string& text) {
                return isVariablePrefix(text)
                           ? ""
                           : "must be letters, digits and \"_\", without a digit in front, not \"" +
                                 text + '"';
            },
            ""));
}

std::shared_ptr<CLI::FormatterBase> makeFormatter() {
    return std::make_shared<Formatter>();
}

const CLI::App& chosen(const CLI::App& app) {
    const std::vector<CLI::App*> parsed = app.get_subcommands();
    return parsed.empty() ? app : *parsed.front();
}

std::string explain(const CLI::App& app, const CLI::ParseError& error) {
    const std::vector<std::string> unknown = app.remaining(true);
    for (const std::string& word : unknown) {
        if (word != "--") {
            return explainUnknown(app, word);
        }
    }
    if (&chosen(app) == &app && error.get_name() == "RequiredError") {
        return "a command is needed; \"vqreg --help\" lists them";
    }
    return plainFault(error.what());
}

}  // namespace vqreg
