// What processes use of the machine, looked at again and again, and whether it grows.
#ifndef VQTORTURE_USAGE_H
#define VQTORTURE_USAGE_H

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

#include "support/Torture.h"

namespace vqtorture {

/// Kibibytes of memory of a process that belong to no file, shared with its parent or not; 0 when it has
/// gone.
double memoryOf(pid_t process);
double descriptorsOf(pid_t process);
double threadsOf(pid_t process);

/// System V memory, of everybody; -1 where that cannot be read.
double segments();

/// Named objects of everybody. Those of the library that are no semaphores belong to stores.
double semaphores();
double otherObjects();

/// How many files are in the directory of a store's file, without that and its backup.
double entriesBeside(const std::string& file);

/// Samples of several numbers in the order of their times.
class Usage {
public:
    void note(const std::string& name, double number) { m_samples[name].push_back(number); }

    /// The highest number of the last quarter may be so much above that of the first. None of them is 0,
    /// which says that nothing could be looked at.
    /// @throws Violation otherwise
    void requireFlat(Run& run, const std::string& name, double share, double more) const;

private:
    std::map<std::string, std::vector<double>> m_samples;
};

}  // namespace vqtorture

#endif  // VQTORTURE_USAGE_H
