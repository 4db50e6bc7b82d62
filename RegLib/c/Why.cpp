// Why a store cannot be used, for people.
#include <cstring>
#include <string>

#include "RegLib/c/FileTree.h"
#include "RegLib/c/Guarded.h"
#include "RegLib/file/StoreFile.h"
#include "RegLib/text/TextFault.h"
#include "portable/FilePlace.h"

using namespace VQRegLib;

namespace {

std::string placeFault(const std::string& file) {
    const std::string directory = directoryOfFile(file);
    switch (filePlace(file)) {
        case eFilePlace::eNoDirectory:
            return file + ": the directory " + directory + " does not exist";
        case eFilePlace::eNoSuchDirectory:
            return file + ": " + directory + " is not a directory";
        case eFilePlace::eClosedDirectory:
            return file + ": the directory " + directory + " may not be entered";
        case eFilePlace::eReadOnlyDirectory:
            return file + ": the file does not exist, and the directory " + directory +
                   " may not be written";
        case eFilePlace::eNoFile:
            return file + ": it is not a file";
        case eFilePlace::eClosedFile:
            return file + ": the file may not be read";
        case eFilePlace::eFine:
            break;
    }
    return {};
}

// Line and column as compilers write them.
std::string textFault(const std::string& file) {
    std::string text;
    if (!readText(file, text)) {
        return {};
    }
    const std::optional<CTextFault> fault = firstFault(text);
    return fault ? file + ':' + std::to_string(fault->line) + ':' + std::to_string(fault->column) +
                       ": " + fault->what
                 : std::string();
}

std::string whyNot(const char* name) {
    if (name && !*name) {
        return "an empty path is no store";
    }
    const std::string file = storeFile(name);
    const std::string place = placeFault(file);
    return place.empty() ? textFault(file) : place;
}

struct CSentence {
    int code;
    const char* text;
};

constexpr CSentence kSentences[] = {
    {VQREG_OK, "success"},
    {VQREG_E_FAIL, "memory is short, an argument is missing, or a system object cannot be made"},
    {VQREG_E_NOT_FOUND, "there is no value of that name"},
    {VQREG_E_NOT_A_KEY, "the name is a value's, not a key's"},
    {VQREG_E_NOT_A_VALUE, "the name is a key's, not a value's"},
    {VQREG_E_KEY_NOT_FOUND, "there is no key of that name"},
    {VQREG_E_BAD_TYPE, "the value has another type"},
    {VQREG_E_BUFFER_TOO_SMALL, "the buffer is too small"},
    {VQREG_E_BAD_FORMAT, "the store's file is malformed"},
    {VQREG_E_INVALID_HANDLE, "the key has been deleted"},
    {VQREG_E_KEY_NOT_EMPTY, "the key is not empty"},
    {VQREG_E_FILE_OPEN, "the store's file cannot be read or replaced"},
    {VQREG_E_NOT_INITIALIZED, "there is no store"},
    {VQREG_E_NOT_STORABLE, "the file cannot give back such a name or such data"},
};

}  // namespace

static_assert(VQREG_E_FAIL == REGLIB_E_FAIL && VQREG_E_NOT_FOUND == REGLIB_E_NOT_FOUND &&
              VQREG_E_NOT_A_KEY == REGLIB_E_NOT_A_KEY &&
              VQREG_E_NOT_A_VALUE == REGLIB_E_NOT_A_VALUE &&
              VQREG_E_KEY_NOT_FOUND == REGLIB_E_KEY_NOT_FOUND &&
              VQREG_E_BAD_TYPE == REGLIB_E_BAD_TYPE &&
              VQREG_E_BUFFER_TOO_SMALL == REGLIB_E_BUFFER_TOO_SMALL &&
              VQREG_E_BAD_FORMAT == REGLIB_E_BAD_FORMAT &&
              VQREG_E_INVALID_HANDLE == REGLIB_E_INVALID_HANDLE &&
              VQREG_E_KEY_NOT_EMPTY == REGLIB_E_KEY_NOT_EMPTY &&
              VQREG_E_FILE_OPEN == REGLIB_E_FILE_OPEN &&
              VQREG_E_NOT_INITIALIZED == REGLIB_E_NOT_INITIALIZED);

const char* vqreg_strerror(int result) {
    for (const CSentence& each : kSentences) {
        if (each.code == result) {
            return each.text;
        }
    }
    return "an unknown result";
}

size_t vqreg_why(const char* file, char* text, size_t size) {
    std::string why;
    (void)guardedForC([&] {
        why = whyNot(file);
        return VQREG_OK;
    });
    if (text && size > 0) {
        const std::size_t fitting = why.size() < size ? why.size() : size - 1;
        std::memcpy(text, why.data(), fitting);
        text[fitting] = '\0';
    }
    return why.size();
}
