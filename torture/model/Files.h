// The files of all stores, with what the processes know of each together.
#ifndef VQTORTURE_MODEL_FILES_H
#define VQTORTURE_MODEL_FILES_H

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "model/Step.h"

namespace vqtorture::model {

class Store;

bool hasValue(const std::string& text);

struct File {
    std::optional<std::string> text;
    std::optional<std::string> backup;
    /// Moves with each write of the library and with each VQRegReload; a store that knows another one
    /// reads the file at its next operation.
    std::uint64_t stamp = 1;
    const Store* updating = nullptr;  ///< the store that has an update on the file
    int updatingProcess = -1;

    /// What a write of the library does.
    /// @param foundLost  whether the writer has found the text lost, and no value since
    void replace(const std::string& newText, bool foundLost);

    /// Whether the file is missing or empty, and the backup is not.
    bool isLost() const;
};

class Files {
public:
    /// The file behind a name of kStoreNames.
    File& of(const std::string& name);

    /// While the directory is away, no file is there, and none can be made.
    bool isHidden() const { return m_isHidden; }

    /// Takes a step that concerns the files.
    void take(const Step& step);

    /// What a directory with the files should hold.
    std::map<std::string, std::string> content() const;

private:
    std::array<File, kFiles> m_files;
    bool m_isHidden = false;
};

}  // namespace vqtorture::model

#endif  // VQTORTURE_MODEL_FILES_H
