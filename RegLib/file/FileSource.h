// An open configuration file as the text that a tree reads.
#ifndef REGLIB_FILE_FILESOURCE_H
#define REGLIB_FILE_FILESOURCE_H

#include "RegLib/tree/TextSource.h"
#include "portable/OpenFile.h"

namespace VQRegLib {

class CFileSource : public CTextSource {
public:
    explicit CFileSource(COpenFile& file) : m_file(file) {}

    std::size_t read(char* to, std::size_t size) override;
    int error() const override { return m_error; }
    void rewind() override;
    std::size_t size() const override;
    bool wantsLines() const override;
    void onLine(std::string_view line) override;

    // The lines have been told already.
    void beQuiet() { m_isQuiet = true; }

private:
    COpenFile& m_file;
    int m_error = 0;
    bool m_isQuiet = false;
};

}  // namespace VQRegLib

#endif  // REGLIB_FILE_FILESOURCE_H
