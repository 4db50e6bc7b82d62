// Load: what many do at once, and for long.
#include "load/Load.h"

int main(int argc, char** argv) {
    using namespace vqtorture;
    return runOneOf({{"readback", readback},
                     {"linear", linear},
                     {"two_writers", twoWriters},
                     {"watched", watched},
                     {"soak", soak}},
                    argc, argv);
}
