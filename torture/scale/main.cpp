// Figures at scale, each with an order of growth that must hold on any machine.
#include "scale/Scale.h"

int main(int argc, char** argv) {
    using namespace vqtorture;
    return runOneOf({{"opens", opens},
                     {"handles", handles},
                     {"keys", keys},
                     {"siblings", siblings},
                     {"values", values},
                     {"text", text},
                     {"nesting", nesting}},
                    argc, argv);
}
