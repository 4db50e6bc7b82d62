// The copy of a trace line on standard output.
#ifndef REGLIB_TRACE_ECHO_H
#define REGLIB_TRACE_ECHO_H

namespace VQRegLib {

// Prints the line as a printf format, as it has always been: "%%" comes out as "%", a conversion
// prints a zero or "(null)". A line that printf could not interpret safely is printed as it is.
void echoTraceLine(const char* line);

}  // namespace VQRegLib

#endif  // REGLIB_TRACE_ECHO_H
