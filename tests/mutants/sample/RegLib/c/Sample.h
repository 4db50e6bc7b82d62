// A room without units.
#ifndef SAMPLE_OF_LIBRARY_H
#define SAMPLE_OF_LIBRARY_H

bool isSmaller(int one, int other);

#endif  // SAMPLE_OF_LIBRARY_H
