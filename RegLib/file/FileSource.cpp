#include "RegLib/file/FileSource.h"

#include <cerrno>

#include "RegLib/trace/Trace.h"
#include "portable/FileOps.h"

namespace VQRegLib {

std::size_t CFileSource::read(char* to, std::size_t size) {
    const std::size_t got = CFileOps::current().read(to, size, m_file);
    if (got < size) {
        m_error = errno;
    }
    return got;
}

void CFileSource::rewind() {
    m_file.rewind();
    m_error = 0;
}

std::size_t CFileSource::size() const {
    return CFileOps::current().sizeOf(m_file);
}

bool CFileSource::wantsLines() const {
    return !m_isQuiet && VQRegLib::traceFor(eTraceImport) != nullptr;
}

void CFileSource::onLine(std::string_view line) {
    REGLIB_TRACE(eTraceImport, "import line \"%.*s\"\n", static_cast<int>(line.size()),
                 line.data());
}

}  // namespace VQRegLib
