// What only those see who have it from the shared library.
#include "RegLib/c/Sample.h"

bool isSmaller(int one, int other) {
    return one < other;
}
