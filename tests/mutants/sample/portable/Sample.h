// What is tested, and what is not.
#ifndef SAMPLE_H
#define SAMPLE_H

bool isLarger(int one, int other);
int countUpTo(int last);
bool isAnswer(int number);

#endif  // SAMPLE_H
