// Reads the configuration file in large blocks and hands it out line by line.
#ifndef REGLIB_FILE_LINEREADER_H
#define REGLIB_FILE_LINEREADER_H

#include <cstdio>
#include <memory>
#include <string_view>

namespace VQRegLib {

class CLineReader {
public:
    explicit CLineReader(std::FILE* file);

    // The next line, as takeLine cuts it. False at the end of the file and after a read error.
    bool next(std::string_view& line);

    // Of the read that failed, as an errno; 0 when none did.
    int error() const { return m_nError; }

private:
    void fill();

    std::FILE* m_pFile;
    std::unique_ptr<char[]> m_buffer;
    std::size_t m_begin = 0;
    std::size_t m_end = 0;
    bool m_atEnd = false;
    int m_nError = 0;
};

}  // namespace VQRegLib

#endif  // REGLIB_FILE_LINEREADER_H
