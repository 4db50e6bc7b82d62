// What a store should hold and look like, written down as simply as possible.
#ifndef VQTEST_MODEL_STORE_H
#define VQTEST_MODEL_STORE_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "support/Results.h"

namespace vqtest {

/// A store in memory that answers as the library should and can print the file that the library
/// should write. Key paths start at the root key; "." is the root key itself. The operations return
/// the result codes of the library.
class ModelStore {
public:
    explicit ModelStore(std::string_view root = "Velquist");
    ~ModelStore();
    ModelStore(const ModelStore&) = delete;
    ModelStore& operator=(const ModelStore&) = delete;

    /// Creates the keys of a path from the top of the file, where they are missing, and makes the
    /// last one the root key from now on.
    void useRoot(std::string_view path);

    /// Forgets the spellings of values that the file does not show, as another process would see
    /// the store.
    void reread();

    int create(std::string_view path);
    int open(std::string_view path) const;
    int deleteKey(std::string_view path);

    int set(std::string_view path, const std::string& name, std::uint32_t number);
    int set(std::string_view path, const std::string& name, const std::string& text);
    int setBinary(std::string_view path, const std::string& name, const std::string& bytes);
    int deleteValue(std::string_view path, const std::string& name);
    Value get(std::string_view path, const std::string& name) const;

    KeyNames enumKeys(std::string_view path) const;
    ValueNames enumValues(std::string_view path) const;

    /// The file, byte for byte.
    std::string text() const;

private:
    struct Leaf;
    struct Key;

    static std::unique_ptr<Key> makeKey(std::string name);
    int find(Key* from, std::string_view path, bool create, Key*& found) const;
    int findForSet(std::string_view path, const std::string& name, Leaf*& leaf);

    std::unique_ptr<Key> m_top;
    Key* m_root;
};

}  // namespace vqtest

#endif  // VQTEST_MODEL_STORE_H
