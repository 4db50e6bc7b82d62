// Figures at scale: what n of something cost, against what a tenth of them cost.
#ifndef VQTORTURE_SCALE_H
#define VQTORTURE_SCALE_H

#include <functional>
#include <string>

#include "VQRegLib.h"
#include "support/Torture.h"

namespace vqtorture {

/// Of this process, all its threads.
double processorSeconds();

/// Processor time of something.
double secondsOf(const std::function<void()>& work);

/// Bytes that are allocated and not given back.
double allocatedBytes();

/// Kibibytes of memory that belong to no file.
double residentKibibytes();

/// The cost of one item among many may be so many times that of one among a tenth of them: no more than
/// the caches explain. Notes the growth and the cost of one item, in nanoseconds.
void requireGrowth(Run& run, const std::string& name, double ofTenth, double ofAll);

void requireCode(int code, int expected, const std::string& what);

/// A path in the run's directory that has no file yet.
std::string freshStore(Run& run, const std::string& name);

void opens(Run& run);
void handles(Run& run);
void keys(Run& run);
void siblings(Run& run);
void values(Run& run);
void text(Run& run);
void nesting(Run& run);

}  // namespace vqtorture

#endif  // VQTORTURE_SCALE_H
