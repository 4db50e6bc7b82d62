// The copy of a trace line on standard output.
#ifndef REGLIB_TRACE_ECHO_H
#define REGLIB_TRACE_ECHO_H

namespace VQRegLib {

// Prints the line as a printf format, as it has always been: "%%" comes out as "%", a conversion
// prints a zero, "(null)", "(nil)" for "%p" or, "%m", the text of errno. What printf does not know is
// printed as it is, and so are "%n" and widths beyond five digits.
void echoTraceLine(const char* line);

}  // namespace VQRegLib

#endif  // REGLIB_TRACE_ECHO_H
