// Random operations on a few stores, each written down with all that it gives back.
#ifndef VQCOMPARE_PLAY_H
#define VQCOMPARE_PLAY_H

#include <array>
#include <memory>
#include <string>

#include "Texts.h"
#include "VQRegLib.h"

namespace vqcompare {

/// Two files, each open in several stores of this process: under other spellings of its path, which
/// are as good as other processes, and with other root keys. The log goes to standard output, where
/// `dump` and the trace's echo go as well. Nothing in it may depend on anything but the seed.
class Play {
public:
    /// `whole`: texts of files are written down, not just what tells them apart.
    Play(std::string directory, std::uint64_t seed, bool whole);
    ~Play();
    Play(const Play&) = delete;
    Play& operator=(const Play&) = delete;

    /// One operation and what is in the files behind it.
    void step();

private:
    static constexpr std::size_t kFiles = 2;
    static constexpr std::size_t kStores = 7;
    static constexpr std::size_t kHandles = 24;

    struct Store {
        std::size_t file = 0;
        std::string path;
        const char* root = nullptr;
        std::unique_ptr<VQRegLib::CRegLib> session;
    };
    struct Handle {
        std::unique_ptr<VQRegLib::CRegKey> key = std::make_unique<VQRegLib::CRegKey>();
        std::size_t store = 0;
    };

    VQRegLib::CRegLib& session() { return *m_stores[m_store].session; }
    std::string filePath(std::size_t file) const;

    // Of the store in use, mostly: any handle, or the root key.
    Handle& handle(bool filled);
    VQRegLib::CRegKey& key();

    // Names of what is there, mostly, or of anything.
    std::string valueOf(VQRegLib::CRegKey& at);
    std::string subKeyOf(VQRegLib::CRegKey& at);

    void openSession();
    void closeSession();
    void createKey();
    void createVector();
    void dropHandle();
    void deleteKey();
    void deleteValue();
    void setNumber();
    void setText();
    void setBytes();
    void queryType();
    void query();
    void enumerateKeys();
    void enumerateValues();
    void describe();
    void dump();
    void parsePath();
    void beginUpdate();
    void endUpdate();
    void reload();
    void notify();
    void changeFile();
    void mend();
    bool updates() const;
    void logFiles();

    std::string m_directory;
    bool m_whole;
    Chance m_chance;
    Texts m_texts;
    std::array<Store, kStores> m_stores;
    std::array<Handle, kHandles> m_handles;
    std::size_t m_store = 0;
    std::array<unsigned, kStores> m_updates = {};  // how deep each store is in an update
    std::size_t m_steps = 0;
    std::array<std::string, 2 * kFiles> m_contents;
};

}  // namespace vqcompare

#endif  // VQCOMPARE_PLAY_H
