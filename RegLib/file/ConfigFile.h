// The store's file on the disk, and its backup.
#ifndef REGLIB_FILE_CONFIGFILE_H
#define REGLIB_FILE_CONFIGFILE_H

#include <string>

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
//     recover() mends what a process leaves behind that dies in that moment.
//  3. The old text is moved to the backup's name. With the second name in place this does nothing:
//     both are one file.
//  4. The new text is renamed to the path. That replaces an existing file, which makes ext4 write
//     the new data out first, so that a power cut leaves the old or the new text.
//
// A backup that holds a text is given up only for another text: an empty or missing file leaves it
// alone, and so does what the opening of a store then makes of it, a file without a value, where the
// backup has one. Results are not looked at: what fails, fails as a whole, and the path names the old text.
class CConfigFile {
public:
    void setPath(const char* path);  // all names are made here: later nothing may fail

    // `isOfOpening`: the file is only what the opening of this store has made in the place of a lost
    // text. False when the file system knows neither links nor exchanges, and nothing has been done
    // but the old backup has gone.
    bool replaceAtOnce(const char* temporary, bool isOfOpening) const;
    void replaceInSteps(const char* temporary) const;

    // After the death of a process that was replacing the file.
    void recover() const;

    // The file is missing or empty, and its backup is not.
    bool isTextLost() const;

    const char* backup() const { return m_backup.c_str(); }

private:
    bool isBackupBetter(bool isOfOpening) const;

    std::string m_path;
    std::string m_backup;
};

}  // namespace VQRegLib

#endif  // REGLIB_FILE_CONFIGFILE_H
