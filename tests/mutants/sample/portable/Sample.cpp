// a == b is no code here, nor is "a < b".
#include "portable/Sample.h"

bool isLarger(int one, int other) {
    return one > other;
}

// Without its step it never ends.
int countUpTo(int last) {
    int count = 0;
    while (count < last) {
        ++count;
    }
    return count;
}

// Nobody looks at this one.
bool isAnswer(int number) {
    return number == 42;
}
