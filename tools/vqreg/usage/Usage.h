// What a person who mistypes a command line is told.
#ifndef TOOLS_VQREG_USAGE_USAGE_H
#define TOOLS_VQREG_USAGE_USAGE_H

#include <CLI/CLI.hpp>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vqreg {

// "vqreg get [--type] [--raw] [--default V] KEY NAME", on one line.
std::string usageLine(const CLI::App& app);

// Replaces the line that usageLine would make of the options: for commands whose arguments depend
// on each other.
void setUsage(CLI::App& app, const std::string& line);

// The arguments of a command line in the order in which CLI11 takes them: the last one first.
std::vector<std::string> parserOrder(const std::vector<std::string>& words);

// The word in the place of the command, before the line is parsed; none for other lines.
std::optional<std::string> commandWord(const CLI::App& app, const std::vector<std::string>& words);

// Help texts that begin with the usage line.
std::shared_ptr<CLI::FormatterBase> makeFormatter();

// For options that take seconds.
CLI::Validator secondsRule();

// --prefix, of commands that make variables of values.
CLI::Option* addPrefixOption(CLI::App& command, std::string& prefix);

// For a word in the place of a command, with the command that may be meant.
std::string unknownCommand(const CLI::App& app, const std::string& word);

// What is wrong with the command line, with the nearest suggestion for what is misspelt.
std::string explain(const CLI::App& app, const CLI::ParseError& error);

// The sub-command that was chosen, else the application.
const CLI::App& chosen(const CLI::App& app);

}  // namespace vqreg

#endif  // TOOLS_VQREG_USAGE_USAGE_H
