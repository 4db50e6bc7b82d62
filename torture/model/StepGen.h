// Random steps. Few names, so that they meet; and among them all that the format cannot hold.
#ifndef VQTORTURE_MODEL_STEP_GEN_H
#define VQTORTURE_MODEL_STEP_GEN_H

#include <rapidcheck.h>

#include <vector>

#include "model/Step.h"

namespace vqtorture::model {

/// @param processes  how many there are
rc::Gen<std::vector<Step>> steps(int processes);

}  // namespace vqtorture::model

#endif  // VQTORTURE_MODEL_STEP_GEN_H
