// The lines of a configuration file: how a text falls into them, what each says, and how the data of a
// value are read back from its line.
#ifndef VQTORTURE_MODEL_LINES_H
#define VQTORTURE_MODEL_LINES_H

#include <optional>
#include <string>
#include <vector>

#include "VQRegLib.h"

namespace vqtorture::model {

using DataType = VQRegLib::CRegLib::eDataType;

/// A reader takes at most this many bytes at once; what is longer counts as several lines.
constexpr std::size_t kPiece = 2048;

/// A text as a reader sees it: pieces of lines without their ends.
std::vector<std::string> linesOf(const std::string& text);

bool isKeyLine(const std::string& line);

/// The names of a key line; none when it is malformed. An empty list is "[]", which names no key.
std::optional<std::vector<std::string>> namesOfKeyLine(const std::string& line);

struct ValueLine {
    std::string name;
    DataType type;
};

/// Nothing when the line is malformed.
std::optional<ValueLine> parseValueLine(const std::string& line);

/// @name What the setters store
/// @{
std::string stringLine(const std::string& name, const std::string& text);
std::string dwordLine(const std::string& name, unsigned long number);
std::string binaryLine(const std::string& name, const unsigned char* data, unsigned long size);
/// @}

/// Reads the data of a line into a buffer. @return the result code of the query
int readData(const std::string& line, DataType type, unsigned char* buffer, unsigned long& size);

/// The names between the separators of a path that a caller gives.
std::vector<std::string> namesOfPath(const std::string& path);

/// The form under which names are compared and ordered.
std::string folded(std::string name);

}  // namespace vqtorture::model

#endif  // VQTORTURE_MODEL_LINES_H
