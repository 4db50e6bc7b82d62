// Which file a store is and why it cannot be used, for people.
#include <cerrno>
#include <cstring>
#include <string>
#include <system_error>

#include "RegLib/c/CStore.h"
#include "RegLib/c/FileTree.h"
#include "RegLib/c/Guarded.h"
#include "RegLib/file/FileStore.h"
#include "RegLib/file/StoreFile.h"
#include "RegLib/text/KeyPath.h"
#include "RegLib/text/LineFormat.h"
#include "RegLib/text/Storable.h"
#include "RegLib/text/TextFault.h"
#include "portable/FilePlace.h"
#include "portable/NoCancellation.h"
#include "portable/PathParts.h"

using namespace VQRegLib;

namespace {

std::string placeFault(const std::string& file) {
    const std::string directory = directoryOfPath(file);
    const eFilePlace place = filePlace(file);
    const int error = errno;
    switch (place) {
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
        case eFilePlace::eNoPath:
            return file + ": " + std::generic_category().message(error);
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
    if (!fault) {
        return {};
    }
    return file + ':' + std::to_string(fault->line) + ':' + std::to_string(fault->column) + ": " +
           fault->what;
}

std::string whyNot(const char* name) {
    if (name && !*name) {
        return "an empty path is no store";
    }
    const std::string file = storeFile(name);
    const std::string place = placeFault(file);
    return place.empty() ? textFault(file) : place;
}

std::string badCharacter(const char* what, const CBadCharacter& found) {
    return std::string(what) + " must not hold " + found.name + ": byte " +
           std::to_string(found.at + 1);
}

std::string lineTooLong(std::size_t size) {
    return "its line would take " + std::to_string(size) + " bytes, and may take " +
           std::to_string(kLongestLine);
}

// Without a store, one with the usual root key is meant.
std::string_view rootOf(const vqreg_store* store) {
    return store ? std::string_view(store->m_store->rootPath()) : g_szRootKeynameFile;
}

std::string pathFault(std::string_view root, std::string_view path) {
    if (path.empty()) {
        return {};
    }
    CKeyPath names(path);
    for (std::string_view name; names.next(name);) {
        if (badKeyName(name) != eBadKeyName::eNone) {
            return name.empty() ? "a key name must not be empty" : "a key must not be named <root>";
        }
        if (const auto bad = badCharacterInKeyName(name)) {
            return badCharacter("a key name", *bad);
        }
    }
    const std::size_t size = root.size() + 3 + path.size();  // brackets and a slash
    return size <= kLongestLine ? std::string() : lineTooLong(size);
}

std::string valueFault(std::string_view name, CRegLib::eDataType type, std::string_view data) {
    if (const auto bad = badCharacterInValueName(name)) {
        return badCharacter("a value name", *bad);
    }
    const auto bad =
        type == CRegLib::eString ? badCharacterInText(data) : std::optional<CBadCharacter>();
    if (bad) {
        return badCharacter("a text", *bad);
    }
    const std::size_t size = valueLineSize(name.size(), type, data.size());
    return size <= kLongestLine ? std::string() : lineTooLong(size);
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

const char* vqreg_version() {
    return VQREG_VERSION;
}

const char* vqreg_strerror(int result) {
    for (const CSentence& each : kSentences) {
        if (each.code == result) {
            return each.text;
        }
    }
    return "an unknown result";
}

namespace {

// Makes a sentence and gives what fits of it, or of another one where there is no memory for it.
template <typename Sentence>
size_t tell(char* text, size_t size, std::string_view withoutMemory, Sentence&& sentence) {
    const CNoCancellation noCancellation;
    std::string whole;
    std::string_view told = withoutMemory;
    (void)guardedForC([&] {
        whole = sentence();
        told = whole;
        return VQREG_OK;
    });
    if (text && size > 0) {
        const std::size_t fitting = told.size() < size ? told.size() : size - 1;
        std::memcpy(text, told.data(), fitting);
        text[fitting] = '\0';
    }
    return told.size();
}

}  // namespace

size_t vqreg_why(const char* file, char* text, size_t size) {
    return tell(text, size, "", [&] { return whyNot(file); });
}

size_t vqreg_which(const char* file, char* path, size_t size) {
    return tell(path, size, "", [&] { return storeFile(file); });
}

size_t vqreg_why_not_storable(const vqreg_store* store, const char* path, const char* name,
                              vqreg_type type, const void* data, size_t size, char* text,
                              size_t room) {
    // What can be stored takes no memory: so without any it cannot be.
    return tell(text, room, "memory is short", [&]() -> std::string {
        if (!data && size > 0) {
            return "an argument is missing";
        }
        std::string fault = pathFault(rootOf(store), CStoreOfC::pathOf(path));
        if (!fault.empty() || !name) {
            return fault;
        }
        return valueFault(name, static_cast<CRegLib::eDataType>(type),
                          {static_cast<const char*>(data), size});
    });
}
