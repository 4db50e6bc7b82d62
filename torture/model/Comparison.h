// Takes the steps of a sequence with the library and with its model and compares what is seen.
#ifndef VQTORTURE_MODEL_COMPARISON_H
#define VQTORTURE_MODEL_COMPARISON_H

#include <memory>
#include <string>
#include <vector>

#include "model/Step.h"
#include "support/Agent.h"

namespace vqtorture::model {

/// The processes that a comparison uses besides its own; they serve many comparisons.
using Agents = std::vector<std::unique_ptr<vqtest::Agent>>;

/// The program of this process as an agent.
std::unique_ptr<vqtest::Agent> startAgent(const std::string& directory);

/// The life of such an agent: takes steps from its standard input until that ends.
int beAgent(const std::string& directory);

struct Outcome {
    std::size_t operations = 0;
    std::string difference = {};  ///< empty where there is none
};

/// Takes a sequence. Process 0 is this one, the others are agents.
/// @param directory  is emptied first
Outcome compare(const std::vector<Step>& steps, const std::string& directory, Agents& agents);

}  // namespace vqtorture::model

#endif  // VQTORTURE_MODEL_COMPARISON_H
