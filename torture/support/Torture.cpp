#include "support/Torture.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>

namespace vqtorture {

namespace {

constexpr int kViolated = 1;
constexpr int kWrongOrder = 2;
constexpr int kCannotRun = 77;

int judge(const Check& check, Run& run) {
    try {
        check.body(run);
        return 0;
    } catch (const CannotRun& reason) {
        std::printf("cannot run: %s\n", reason.what());
        return kCannotRun;
    } catch (const std::exception& violation) {
        std::fprintf(stderr, "%s: %s\n", check.name, violation.what());
        return kViolated;
    }
}

}  // namespace

void Run::highest(const std::string& name, double number) {
    const auto [place, isNew] = m_maxima.emplace(name, number);
    if (!isNew) {
        place->second = std::max(place->second, number);
    }
}

double Run::sum(const std::string& name) const {
    const auto found = m_sums.find(name);
    return found == m_sums.end() ? 0 : found->second;
}

void Run::printFigures() const {
    for (const auto& [name, number] : m_sums) {
        std::printf("figure sum %s %.15g\n", name.c_str(), number);
    }
    for (const auto& [name, number] : m_maxima) {
        std::printf("figure max %s %.15g\n", name.c_str(), number);
    }
    std::fflush(stdout);
}

void require(bool holds, const std::string& what) {
    if (!holds) {
        throw Violation(what);
    }
}

int runOneOf(const std::vector<Check>& checks, int argc, char** argv) {
    CLI::App app;
    std::string name;
    std::uint64_t seed = 1;
    std::uint64_t count = 1;
    std::string directory;
    app.add_option("check", name)->required();
    app.add_option("--seed", seed);
    app.add_option("--count", count);
    app.add_option("--directory", directory)->required();
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        app.exit(error);
        return kWrongOrder;
    }
    const auto check = std::find_if(checks.begin(), checks.end(),
                                    [&](const Check& one) { return name == one.name; });
    if (check == checks.end()) {
        std::fprintf(stderr, "no such check: %s\n", name.c_str());
        return kWrongOrder;
    }
    std::filesystem::create_directories(directory);
    Run run(seed, count, directory);
    const int result = judge(*check, run);
    run.printFigures();
    return result;
}

}  // namespace vqtorture
