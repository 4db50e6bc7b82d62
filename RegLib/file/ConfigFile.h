// The store's file on the disk, and its backup.
#ifndef REGLIB_FILE_CONFIGFILE_H
#define REGLIB_FILE_CONFIGFILE_H

#include <cstdint>
#include <string>

#include "portable/OpenFile.h"
#include "portable/SharedFile.h"

namespace VQRegLib {

// How a new text takes the place of an old one, so that whoever is killed, and wherever, the path
// names a complete text.
//
// The new text is complete under a temporary name before any name is touched. Then:
//
//  1. The old backup goes.
//  2. The old text gets the backup's name as a second one (link), so that it has a name whatever
//     happens to the path. The kernel may refuse this to users who do not own the file
//     (fs.protected_hardlinks); the two names are then exchanged in one step (renameat2), and the
//     old text, which now has the temporary name, is renamed to the backup. Where the file system
//     knows neither, the renames below do it alone, and for a moment only the backup exists:
//     recover() mends what a process leaves behind that dies in that moment, and what is left when
//     the new text cannot take the path's place.
//  3. The old text is moved to the backup's name. With the second name in place this does nothing:
//     both are one file.
//  4. The new text is renamed to the path.
//
// Before step 1 the new data have been written out: not past the disk's own cache, which costs much more,
// but so that ext4 and xfs do not bring the new name to the disk before them, and a power cut leaves the
// old or the new text. That ext4 begins to write the data of a file which replaces another one is not
// enough: it notes that they have been written only later (dioread_nolock, its default since Linux 5.6),
// and a journal that another program's fsync writes in between has the new name with a text of zeroes.
//
// Where texts are to be on the disk (setSynced), the new one is there before step 1, and the names are
// after step 4: then the change is safe, and only then its caller is told. In between a power cut leaves
// the names as they were after one of the steps, or before, and the path names a text of which all is on
// the disk. Only the renames alone could leave no path: there the backup gets a copy of the old text, and
// the new one is renamed over the path.
//
// A backup that holds a text is given up only for another text: an empty or missing file leaves it
// alone, and so does what the opening of a store then makes of it, a file without a value, where the
// backup has one: by the store that found it missing or empty; to a later one a file without a value is
// a text as any other. A link or an exchange that fails chooses the next way; the results of the plain
// renames change nothing: what fails, fails as a whole, and the path names the old text.
class CConfigFile {
public:
    // `traced`: whose address the trace lines bear.
    explicit CConfigFile(const void* traced) : m_traced(traced) {}

    void setPath(const char* path);  // all names are made here: later nothing may fail
    const char* path() const { return m_path.c_str(); }
    const char* backup() const { return m_backup.c_str(); }

    // At most one is open at a time. REGLIB_E_NOT_FOUND when the file is missing, else
    // REGLIB_E_FILE_OPEN when it cannot be opened; an error line says why. The second one says
    // nothing about a missing file: with the lock in hand it will be opened again.
    [[nodiscard]] int openForReading();
    [[nodiscard]] int openIfPresent();

    // Makes a new file for a text of so many bytes. `name`, when not null, receives its name, also
    // on failure.
    [[nodiscard]] int createTemporary(std::uint64_t size, std::string* name);

    // Some file systems tell only at the closing that a write has failed: false then.
    [[nodiscard]] bool close();

    // Whether each new text and its names are brought to the disk, for machines that may lose their power
    // while it matters.
    void setSynced(bool isSynced) { m_isSynced = isSynced; }

    // The text that is open for writing; before it is closed and takes the file's place. It is written
    // out, or brought to the disk. False with an error line when that fails.
    [[nodiscard]] bool writeOut() const;

    // The names, after the replacement. REGLIB_E_FILE_OPEN with an error line: the new text is in place,
    // but a power cut may bring the old one back.
    [[nodiscard]] int syncNames() { return m_isSynced ? bringNamesToDisk() : 0; }

    bool isOpen() const { return static_cast<bool>(m_pFile); }
    COpenFile& file() { return m_pFile; }

    // False when the file system knows neither links nor exchanges, and nothing has been done
    // but the old backup has gone.
    [[nodiscard]] bool replaceAtOnce(const char* temporary) const;
    void replaceInSteps(const char* temporary) const;

    // After the death of a process that was replacing the file, or a last rename that may have failed:
    // a path that is absent gets the backup. False when it should, and that fails.
    [[nodiscard]] bool recover() const;

    // Whether the file is missing or empty, and its backup is not; an error line says so.
    void lookForLostText();

    // A text that was read or written had a value.
    void noteValues() { m_hasFileValues = true; }
    bool hasValues() const { return m_hasFileValues; }

    // What a reading brought while a writer was replacing the file. It holds for as long as the path
    // names the file that was read, which is kept open for that.
    bool isGlanced() const { return m_glanced.isOurs() && m_glanced.isNamed(); }
    int glanceResult() const { return m_glancedResult; }
    void keepGlance(int result);
    void forgetGlance() { m_glanced.close(); }

private:
    [[nodiscard]] int finishOpen(bool isReading, const char* name, int error);
    bool isTextLost() const;
    bool isBackupBetter() const;
    [[nodiscard]] int bringNamesToDisk() const;
    bool replaceBesideCopy(const char* temporary) const;

    const void* const m_traced;
    std::string m_path;
    std::string m_backup;
    COpenFile m_pFile;
    bool m_isSynced = false;
    bool m_isTextSeen = false;  // in the file, a moment ago
    CSharedFile m_glanced;
    int m_glancedResult = 0;
    bool m_isTextLost = false;     // the file was missing or empty, and the backup was not
    bool m_hasFileValues = false;  // then the file is more than what the opening of a store makes
};

}  // namespace VQRegLib

#endif  // REGLIB_FILE_CONFIGFILE_H
