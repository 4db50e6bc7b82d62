#include "RegLib/file/LineReader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "portable/FileOps.h"

namespace VQRegLib {

namespace {

constexpr std::size_t kBlockSize = 64UL * 1024;

}  // namespace

CLineReader::CLineReader(std::FILE* file)
    : m_pFile(file), m_buffer(std::make_unique_for_overwrite<char[]>(kBlockSize)) {}

void CLineReader::fill() {
    std::memmove(m_buffer.get(), m_buffer.get() + m_begin, m_end - m_begin);
    m_end -= m_begin;
    m_begin = 0;
    errno = 0;
    const std::size_t wanted = kBlockSize - m_end;
    const std::size_t got = CFileOps::current().read(m_buffer.get() + m_end, wanted, m_pFile);
    m_end += got;
    if (got < wanted) {
        m_atEnd = true;
        m_nError = std::ferror(m_pFile) ? std::max(errno, 1) : 0;
    }
}

bool CLineReader::nextPiece(std::string_view& piece) {
    for (;;) {
        const char* const start = m_buffer.get() + m_begin;
        const std::size_t size = std::min(m_end - m_begin, kLongestPiece);
        const void* const feed = std::memchr(start, '\n', size);
        if (feed) {
            piece = {start, static_cast<std::size_t>(static_cast<const char*>(feed) - start) + 1};
        } else if (size == kLongestPiece || (m_atEnd && m_nError == 0 && size > 0)) {
            piece = {start, size};
        } else if (m_atEnd) {
            return false;  // after a read error the beginning of a line is not trusted
        } else {
            fill();
            continue;
        }
        m_begin += piece.size();
        return true;
    }
}

bool CLineReader::next(std::string_view& line) {
    if (!nextPiece(line)) {
        return false;
    }
    line = line.substr(0, line.find('\0'));
    const std::size_t carriageReturn = line.find('\r');
    line =
        line.substr(0, carriageReturn != std::string_view::npos ? carriageReturn : line.find('\n'));
    return true;
}

}  // namespace VQRegLib
