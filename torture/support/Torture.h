// What all programs of this folder share: the order they are started with, the figures they print, and
// how they say that something does not hold. scripts/torture starts them:
//
//   PROGRAM CHECK --seed N --count N --directory DIRECTORY
//
// A check prints its figures as lines "figure sum NAME NUMBER" or "figure max NAME NUMBER", and its
// process ends with 0 when all held, with 1 when something did not, with 77 when it cannot run here.
#ifndef VQTORTURE_TORTURE_H
#define VQTORTURE_TORTURE_H

#include <cstdint>
#include <map>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace vqtorture {

/// Something that must always hold did not.
struct Violation : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// This machine, or this user, does not allow the check.
struct CannotRun : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// What a check has been asked for, and what it has found. One thread uses it.
class Run {
public:
    Run(std::uint64_t seed, std::uint64_t count, std::string directory)
        : m_seed(seed), m_count(count), m_directory(std::move(directory)), m_random(seed) {}

    std::uint64_t seed() const { return m_seed; }
    std::uint64_t count() const { return m_count; }  ///< how many of whatever the check does

    /// Exists and is empty; stores and whatever else the check needs go below it.
    const std::string& directory() const { return m_directory; }

    std::mt19937_64& random() { return m_random; }

    /// A number from 0 to `end` - 1.
    std::uint64_t below(std::uint64_t end) { return m_random() % end; }

    /// Adds to a figure of this name; the figures of several runs are added, too.
    void add(const std::string& name, double number = 1) { m_sums[name] += number; }

    /// What has been added so far.
    double sum(const std::string& name) const;

    /// Of several runs, too, the highest number remains.
    void highest(const std::string& name, double number);

    void printFigures() const;

private:
    std::uint64_t m_seed;
    std::uint64_t m_count;
    std::string m_directory;
    std::mt19937_64 m_random;
    std::map<std::string, double> m_sums;
    std::map<std::string, double> m_maxima;
};

/// @throws Violation when `holds` is false
void require(bool holds, const std::string& what);

struct Check {
    const char* name;
    void (*body)(Run& run);
};

/// Runs the check that the command line names; for a program's `main`, which returns the result.
int runOneOf(const std::vector<Check>& checks, int argc, char** argv);

}  // namespace vqtorture

#endif  // VQTORTURE_TORTURE_H
