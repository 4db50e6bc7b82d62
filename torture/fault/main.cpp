// Every call that the library makes of the system fails once, and from then on; and every operation.
#include "fault/Checks.h"

int main(int argc, char** argv) {
    return vqtorture::runOneOf({{"files", vqtorture::failFiles},
                                {"pairs", vqtorture::failPairs},
                                {"sequences", vqtorture::failInSequences},
                                {"deaths", vqtorture::dieAtFiles},
                                {"synced_files", vqtorture::failSyncedFiles},
                                {"synced_pairs", vqtorture::failSyncedPairs},
                                {"synced_deaths", vqtorture::dieAtSyncedFiles},
                                {"calls", vqtorture::failCalls},
                                {"synced_calls", vqtorture::failSyncedCalls},
                                {"traced_calls", vqtorture::failTracedCalls}},
                               argc, argv);
}
