// The language between a test and its agent processes: one line per order and per answer, with
// fields between tabs.
#ifndef VQTEST_WIRE_H
#define VQTEST_WIRE_H

#include <string>
#include <string_view>
#include <vector>

namespace vqtest {

using Fields = std::vector<std::string>;

/// The file descriptor on which an agent answers. Standard output is not used for it: the library
/// may print there.
constexpr int kAnswerDescriptor = 3;

/// The "result code" of an order that the agent did not understand; no code of the library.
constexpr int kBadOrder = -1;

/// Joins fields with tabs. Tab, CR, LF and "%" within a field become "%09", "%0D", "%0A" and "%25".
std::string joinFields(const Fields& fields);

/// The inverse of `joinFields`. @throws std::invalid_argument when a "%" is not followed by two
/// hexadecimal digits
Fields splitFields(std::string_view line);

/// Two upper-case digits per byte.
std::string toHex(std::string_view bytes);

/// @throws std::invalid_argument when it is not pairs of hexadecimal digits
std::string fromHex(std::string_view digits);

/// Eight upper-case digits, for example "C1250FA8".
std::string codeToText(int code);

/// The inverse of `codeToText`. @throws std::invalid_argument
int codeFromText(std::string_view text);

}  // namespace vqtest

#endif  // VQTEST_WIRE_H
