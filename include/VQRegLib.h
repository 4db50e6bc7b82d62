/// @file
/// One common hierarchical configuration store for the processes of a machine.
///
/// A program opens a session (`CRegLib`), opens keys by path (`CRegKey` handles) and sets, queries,
/// enumerates and deletes typed values below them. All processes that name the same configuration
/// file see the same keys and values: every change is written to the file before the call returns,
/// and every other process reads it at its next call. Reading never waits for another process.
///
/// All texts are NUL-terminated byte strings; the library looks at no encoding. Names are found
/// regardless of ASCII case and keep the spelling with which they were created.
///
/// **Threads.** Any number of threads may share a session. A `CRegKey` belongs to one thread at a
/// time. Destroying a *filled* `CRegKey`, or filling it again through a session of another store,
/// changes the tables of its store without a lock: do so when no other thread is inside a call on a
/// session of that store, opening and closing sessions included, or hand the keys to
/// `CRegLib::VQRegDestroyKeyVect`, which takes the lock. Cancellation of a thread is put off until
/// its call is done; a thread of type `PTHREAD_CANCEL_ASYNCHRONOUS` may not call the library.
///
/// **fork.** A child of a multi-threaded process may use the library only if no other thread was
/// inside a call of it at the moment of the fork. Handlers of the parent are not called in the
/// child. In the child no update is open, whatever its parent was doing: it does not see the changes
/// of an update that has not ended, `CRegLib::VQRegEndUpdate` fails, the end of a `CRegUpdate` does
/// nothing, and the parent's update goes on untouched. A fork waits up to 200 ms for another
/// thread that is opening or closing a session; the child of one that has waited in vain cannot use
/// the library: every call returns `REGLIB_E_FAIL`, and new sessions have no store.
///
/// **Environment.** With `VQREG_SYNC=1` each change is on the disk when its call returns, and outlasts a
/// power cut; it takes as long as the disk does. The process looks at it once, when it opens its first
/// store, and not in a program that has more rights than its caller. Where the last of its waits fails a
/// call returns `REGLIB_E_FILE_OPEN` although the change is in place (docs/guarantees.md). Without it a power cut may take
/// back changes of the last seconds, and leaves the text of one of them whole.
///
/// The header needs C++11 or later.
#ifndef VQREGLIB_H
#define VQREGLIB_H

#include <cstdint>
#include <string>
#include <vector>

#if defined(__GNUC__)
#define VQREGLIB_EXPORT __attribute__((visibility("default")))
#else
#define VQREGLIB_EXPORT
#endif

namespace VQRegLib {

/// @name Result codes
/// Every operation that returns `int` returns one of these. 0 is success and every failure is
/// negative, so test for `< 0`.
/// @{
constexpr int REGLIB_OK = 0;  ///< success
/// memory is short, a system object could not be made, a text was null, or a stored line has no "="
constexpr int REGLIB_E_FAIL = static_cast<int>(0xC1250FA0u);
constexpr int REGLIB_E_NOT_FOUND = static_cast<int>(0xC1250FA2u);      ///< no value of that name
constexpr int REGLIB_E_NOT_A_KEY = static_cast<int>(0xC1250FA3u);      ///< the name is a value's
constexpr int REGLIB_E_NOT_A_VALUE = static_cast<int>(0xC1250FA4u);    ///< the name is a sub key's
constexpr int REGLIB_E_NO_MORE_ITEMS = static_cast<int>(0xC1250FA5u);  ///< index past the last one
constexpr int REGLIB_E_KEY_NOT_FOUND = static_cast<int>(0xC1250FA8u);  ///< no key of that name
constexpr int REGLIB_E_BAD_TYPE = static_cast<int>(0xC1250FB0u);       ///< none of the three types
/// the caller's buffer is too small; the size that is needed has been written back
constexpr int REGLIB_E_BUFFER_TOO_SMALL = static_cast<int>(0xC1250FB1u);
constexpr int REGLIB_E_BAD_FORMAT = static_cast<int>(0xC1250FB2u);  ///< malformed file
/// the key handle was never filled, was released, or belongs to a key that has been deleted
constexpr int REGLIB_E_INVALID_HANDLE = static_cast<int>(0xC1250FB3u);
constexpr int REGLIB_E_KEY_NOT_EMPTY = static_cast<int>(0xC1250FB4u);  ///< has sub keys or values
/// the file, or the new file that is to replace it, could not be opened
constexpr int REGLIB_E_FILE_OPEN = static_cast<int>(0xC1250FB5u);
constexpr int REGLIB_E_END_OF_FILE = static_cast<int>(0xC1250FB6u);  ///< internal to the importer
constexpr int REGLIB_E_NOT_INITIALIZED = static_cast<int>(0xC1250FB7u);  ///< no store
/// @}

class CRegKeyAccess;
class CRegKeyImpl;
class CRegLibAccess;
class CRegLibImpl;

/// A handle on one key of a store: filled by `CRegLib::VQRegCreateKey`, released by its destructor.
///
/// Handles cannot be copied. A handle may be filled again, which releases what it held before. It
/// may outlive its session and its store; it then has empty names and the id 0. Use a handle only
/// with sessions of the store that filled it: ids count from 1 in each store, and another store
/// would take the handle for one of its own.
///
/// An empty handle, or one whose key was deleted, answers `REGLIB_E_INVALID_HANDLE`, except where a
/// path starts at it: as `parent` of a key to open and as `key` of `CRegLib::VQRegDeleteKey` it
/// stands for the top of the file, above the top-level key.
class VQREGLIB_EXPORT CRegKey {
public:
    /// Makes an empty handle.
    CRegKey();

    /// Releases the handle. See the note on threads at the top of this file. Does not throw: if
    /// memory runs out while the key is being released, it is released all the same and the trace
    /// log says so.
    virtual ~CRegKey();

    CRegKey(const CRegKey&) = delete;
    CRegKey& operator=(const CRegKey&) = delete;

    /// The key's own name as the caller spelled it when opening, without its path.
    /// @return null for an empty handle. The text belongs to the handle and is valid until the
    ///         handle is filled again, released, or its store is destroyed.
    const char* GetKeyName() const;

    /// The key's path from the top-level key in brackets, for example `[Velquist/Network]`, in the
    /// stored spelling.
    /// @return null for an empty handle; valid as long as the text of `GetKeyName`.
    const char* GetKeyFullName() const;

    /// The id under which the store has registered the handle: 1 and upwards, unique within one
    /// store, 32 bits.
    /// @return 0 for an empty handle and for one whose store is gone.
    unsigned long GetKeyHandleID() const;

private:
    friend class CRegKeyAccess;
    CRegKeyImpl* m_pImpl;
};

/// Derive from this class to be told of changes to a store's file, and register the object with
/// `CRegLib::SetRegistryChangeHandler`. The library keeps the address only and never deletes it; it
/// may call the object until that is removed or the last session of its store has gone.
class VQREGLIB_EXPORT CRegistryChangeHandler {
public:
    CRegistryChangeHandler();
    virtual ~CRegistryChangeHandler();

    /// Called after the store's file has changed, on a thread of the library on which all signals
    /// are blocked (programs that it starts inherit that). An exception that leaves it is dropped,
    /// with an error line in the trace log; the other handlers are called all the same.
    virtual void OnRegistryChange() = 0;
};

/// A session on one store.
///
/// Sessions of one process that name the same file and root key share one store; the store is
/// destroyed with the last of them. A session whose store could not be opened still exists: each of
/// its operations returns `REGLIB_E_NOT_INITIALIZED` and `RootKey()` is null.
///
/// Unless an operation says otherwise, it may also return these codes: `REGLIB_E_NOT_INITIALIZED`,
/// which leaves all arguments unchanged;
/// `REGLIB_E_FAIL` when memory is short or a required text or pointer is null;
/// `REGLIB_E_BAD_FORMAT` when the file has a malformed line (the lines before it have been read;
/// every operation answers this until the file is mended); `REGLIB_E_FILE_OPEN` when the file
/// cannot be read, or the lock that a change needs cannot be had (no descriptor is left). Operations
/// that change something return `REGLIB_E_FILE_OPEN` also when the new file cannot be written whole
/// (no permission in the directory, no room), and `REGLIB_E_NOT_FOUND` when the directory is missing: the
/// change then stays in this process's memory only and is written with the next change that succeeds.
/// They do not tell when the new file is written but cannot take the old one's place:
/// docs/guarantees.md.
///
/// When a reading of the file ends in an error of the disk, what was read before counts and the call
/// succeeds, but nothing is written, which returns `REGLIB_E_FILE_OPEN`, until the file has been read
/// whole; each operation tries again.
///
/// What the format cannot hold, the library does not check. A line end in a name or in a string
/// value, a double quote in a value name, and a line of the file above 2047 bytes usually make the
/// file malformed for every process that reads it. Other names are accepted, and the data are found
/// elsewhere, or nowhere, once the file is read: a ":" in a value name (its data begin after it), a
/// "]" in a key name (the name ends before it), an empty last name of a key (its values move to the
/// key above), a key called `<root>` (it has no line: its values move to the key before it, its sub
/// keys up), and a key with the name that a value still has in the memory of another process. "/" and
/// "\" separate names and cannot be part of one. docs/file-format.md shows each of these.
class VQREGLIB_EXPORT CRegLib {
public:
    /// The type of a value.
    enum eDataType : std::int32_t {
        eNone = 0,    ///< no type: keys, and values that were not found
        eBinary = 1,  ///< a string of bytes
        eDword = 2,   ///< an unsigned 32-bit number in the machine's byte order
        eString = 3   ///< text; its size counts the terminating NUL
    };

    /// Where a store lives. Passed on to the store and read by nobody.
    enum LOCATION : std::int32_t {
        eLocationDefault = 0  ///< the only value in use
    };

    /// Opens a session.
    ///
    /// @param name      path of the configuration file; null selects "/velquist/etc/Velquist.cfg"
    ///                  where "/velquist/etc" exists and "/etc/Velquist.cfg" otherwise. The file is
    ///                  created when it is missing. A symbolic link of root's or the caller's is
    ///                  followed, now and not again; anybody else's, and an empty path, is no store.
    ///                  Give an absolute path: a relative one is looked up in the working directory
    ///                  at every access, not just now.
    /// @param key       name of the store's root key; null selects "Velquist". It may be a path,
    ///                  whose last key is the root key. Keys that are missing are created.
    /// @param location  `eLocationDefault`
    /// @param result    may be null; receives 0, also when the store could not be opened (see
    ///                  above); unchanged when there was no memory to begin with.
    ///
    /// The first session of a process also reads the trace level (docs/tracing.md), for which it
    /// opens the default store.
    /// @throws VQException when the process-wide directory of stores cannot be allocated
    CRegLib(const char* name, const char* key, LOCATION location, int* result);

    /// Closes the session. Handles filled through it stay valid while the store lives.
    virtual ~CRegLib();

    CRegLib(const CRegLib&) = delete;
    CRegLib& operator=(const CRegLib&) = delete;

    /// Opens a key, or creates it.
    ///
    /// @param parent  the key at which `subKey` starts; null means the root key. An empty handle,
    ///                or one whose key was deleted, means the top of the file: the path must then
    ///                begin with the top-level key's own name.
    /// @param subKey  one name, or several separated by "/" or "\". Empty names count: a path that
    ///                ends in a separator names a key with an empty name.
    /// @param key     receives the key; what it held before is released. After a failure it holds
    ///                the last key of the path that was reached, or what it held before. Never the
    ///                store's own `RootKey()`.
    /// @param create  0 opens an existing key; otherwise the missing keys of the path are created.
    /// @return `REGLIB_OK`; `REGLIB_E_KEY_NOT_FOUND` when a key is missing and `create` is 0;
    ///         `REGLIB_E_NOT_A_KEY` when a name of the path is a value's; and the common codes
    /// @throws VQException when memory runs out while the handle is being filled. The session must
    ///         not be used any more then: its lock stays taken.
    int VQRegCreateKey(CRegKey* parent, const char* subKey, CRegKey& key, int create);

    /// Deletes an empty key.
    /// @param key     the key at which `subKey` starts; as `parent` of `VQRegCreateKey`, except
    ///                that it cannot be null
    /// @param subKey  path of the key to delete
    /// @return `REGLIB_OK`; `REGLIB_E_KEY_NOT_FOUND`; `REGLIB_E_NOT_A_KEY`;
    ///         `REGLIB_E_KEY_NOT_EMPTY` when it has sub keys or values; and the common codes
    /// @throws VQException as for `VQRegCreateKey`
    int VQRegDeleteKey(CRegKey& key, const char* subKey);

    /// Deletes a value.
    /// @return `REGLIB_OK`; `REGLIB_E_NOT_FOUND`; `REGLIB_E_NOT_A_VALUE` when the name is a sub
    ///         key's; `REGLIB_E_INVALID_HANDLE`; `REGLIB_E_NOT_A_KEY`; and the common codes
    int VQRegDeleteValue(CRegKey& key, const char* valueName);

    /// Sets a value to an unsigned 32-bit number, whatever type it had before.
    ///
    /// The file is written only when the value changes. A literal 0 is ambiguous between this
    /// overload and the next one: write `0ul`.
    /// @param value  the low 32 bits are stored
    /// @return `REGLIB_OK`; `REGLIB_E_NOT_A_VALUE` when the name is a sub key's;
    ///         `REGLIB_E_INVALID_HANDLE`; `REGLIB_E_NOT_A_KEY`; and the common codes
    int VQRegSetValue(CRegKey& key, const char* valueName, unsigned long value);

    /// Sets a value to a text, whatever type it had before. See the rules for texts above.
    /// @return as for the number
    int VQRegSetValue(CRegKey& key, const char* valueName, const char* value);

    /// Sets a value to a string of bytes, whatever type it had before. A line of the file holds
    /// about 1000 bytes, depending on the name.
    /// @param data  may be null when `size` is 0
    /// @param size  in bytes
    /// @return as for the number
    int VQRegSetValue(CRegKey& key, const char* valueName, const unsigned char* data,
                      unsigned long size);

    /// Reads a value's type.
    /// @param type  receives the type; `eNone` on failure
    /// @return `REGLIB_OK`; `REGLIB_E_NOT_FOUND`; `REGLIB_E_NOT_A_VALUE`;
    ///         `REGLIB_E_INVALID_HANDLE`; `REGLIB_E_NOT_A_KEY`; and the common codes
    int VQRegQueryValueType(CRegKey& key, const char* valueName, eDataType& type);

    /// Reads a value.
    ///
    /// @param type    receives the type once the value is found, also when the call then fails
    /// @param buffer  receives the data: 4 bytes of a number, a text with its NUL, or the bytes.
    ///                Null counts as a buffer of 0 bytes, which asks for the size.
    /// @param size    in: the buffer's size in bytes; out: the data's size. Must not be null. A
    ///                binary value of an odd number of digits, which only a hand-edited file can
    ///                hold, yields one byte more than the size says where the buffer has room.
    /// @return `REGLIB_OK`; `REGLIB_E_BUFFER_TOO_SMALL` with the needed size in `size` and the
    ///         buffer untouched; `REGLIB_E_NOT_FOUND`; `REGLIB_E_NOT_A_VALUE`;
    ///         `REGLIB_E_INVALID_HANDLE`; `REGLIB_E_NOT_A_KEY`; `REGLIB_E_BAD_TYPE`; and the common
    ///         codes. When memory runs out before the value is found, the result is `REGLIB_OK`
    ///         with the type `eNone` and nothing else written. If the file was missing just then, or
    ///         its writer had died, nobody else can change the store until this thread ends.
    int VQRegQueryValue(CRegKey& key, const char* valueName, eDataType& type, unsigned char* buffer,
                        unsigned long* size);

    /// Names the sub keys of a key one by one, in the byte order of their lower-case names.
    /// @param index  0 for the first one
    /// @param name   receives the name as it was created; unchanged on failure
    /// @return `REGLIB_OK`; `REGLIB_E_NO_MORE_ITEMS`; `REGLIB_E_INVALID_HANDLE`;
    ///         `REGLIB_E_NOT_A_KEY`; and the common codes
    int VQRegEnumKeys(CRegKey& key, int index, std::string& name);

    /// Names the values of a key one by one, in the byte order of their lower-case names.
    /// @param index  0 for the first one
    /// @param name   receives the name as it was created; unchanged on failure
    /// @param type   receives the type; unchanged on failure
    /// @return as for `VQRegEnumKeys`
    int VQRegEnumValues(CRegKey& key, int index, std::string& name, eDataType& type);

    /// The store's root key, owned by the store; never delete it.
    /// @return null when the session has no store, and where any other call returns `REGLIB_E_FAIL`
    ///         because of this thread's update through another store (`VQRegBeginUpdate`)
    CRegKey* RootKey() const;

    /// Prints the tree as this process holds it in memory to standard output, for diagnosis.
    void dump();

    /// Splits a path into its names at every "/" and "\", as the other operations do.
    /// @param path   not looked up in the store
    /// @param names  receives the names behind those that it holds already; empty names included
    /// @return `REGLIB_OK`; `REGLIB_E_FAIL`; `REGLIB_E_NOT_INITIALIZED`
    int ParseKeyPath(const char* path, std::vector<std::string>& names);

    /// Opens, or creates, every key along a path.
    ///
    /// @param parent  as for `VQRegCreateKey`
    /// @param path    as `subKey` there
    /// @param keys    receives one key per name, outermost first; free them with
    ///                `VQRegDestroyKeyVect`. What the vector held before is replaced, not freed.
    /// @param names   receives the stored spelling of each name
    /// @param create  as for `VQRegCreateKey`
    /// @return `REGLIB_OK`, also when a key could not be opened: `keys` and `names` are unchanged
    ///         then; `REGLIB_E_NOT_INITIALIZED`
    /// @throws VQException as for `VQRegCreateKey`
    int VQRegCreateKeyVect(CRegKey* parent, const char* path, std::vector<CRegKey*>& keys,
                           std::vector<std::string>& names, int create);

    /// Frees the keys that `VQRegCreateKeyVect` made and empties the vector; in an update through another
    /// store perhaps later, with the next ones. Null elements are skipped. Other threads may use the store.
    /// @return `REGLIB_OK`; `REGLIB_E_NOT_INITIALIZED` and, without memory, `REGLIB_E_FAIL`: nothing is freed
    int VQRegDestroyKeyVect(std::vector<CRegKey*>& keys);

    /// Registers a change handler. It is called on a thread of the store, "FileWatch", when the
    /// file's modification time, in whole seconds, has moved since the thread's last look. It looks
    /// when any process calls `SendRegistryChangeNotification`, and every 60 seconds. The process's
    /// own changes count too. A handler that is registered twice is called once. Null is ignored.
    /// The thread's first look, from which on it tells changes, comes shortly after the store's
    /// first registration: register first, then read.
    ///
    /// Inside the call a handler may use, open and close sessions, register and remove handlers and
    /// send notifications. Handlers of one store are called one after the other. Closing the last
    /// session of another store waits for a handler of that store which is running; two handlers
    /// that do so to each other wait for ever.
    /// @throws VQException when there is no memory for the thread's data; the handler is not
    ///         registered then. When the thread cannot be started, it is registered but never
    ///         called.
    void SetRegistryChangeHandler(CRegistryChangeHandler* handler);

    /// Removes a change handler. When the call returns, the handler is not running and will not be
    /// called any more (from inside a handler it returns at once). What is not registered is ignored.
    void ClrRegistryChangeHandler(CRegistryChangeHandler* handler);

    /// Begins an update: the changes up to its end become one write of the file, and other
    /// processes see all of them or none. Until then they go on reading the state before it, but
    /// whoever wants to change something waits, and so does every other thread that uses the store
    /// in this process; so be brief. The thread's own operations see the changes at once. Updates
    /// nest, and the outermost one counts. A process that dies in an update has changed nothing.
    ///
    /// A thread that has an update on a file cannot change it through another of its stores, one with
    /// another root key for example: such calls return `REGLIB_E_FAIL` and change nothing, also the
    /// setting of a value to what it is already, because the update may be about to change it. Reads
    /// through them see the state before the update. Where another thread is inside a call on such a
    /// store and waits for this update, they all return `REGLIB_E_FAIL`.
    ///
    /// End the update in the thread that began it; `CRegUpdate` does that for a scope. In an update
    /// open and close no sessions, this one included, and register and remove no change handlers:
    /// another thread that is opening a session, or a handler that is running, may be waiting for
    /// the update while the update waits for it.
    /// @return `REGLIB_OK`; `REGLIB_E_FAIL` also when the thread has an update on the file through
    ///         another store; `REGLIB_E_FILE_OPEN` also when there is no file and none can be made; the
    ///         common codes: the update has not begun then
    int VQRegBeginUpdate();

    /// Ends an update. The end of the outermost one writes the file if anything has changed, or an earlier
    /// change of this process could not be written: an update made again until it succeeds is written.
    /// @return `REGLIB_OK`; `REGLIB_E_FILE_OPEN` when the file cannot be written: the update has ended all
    ///         the same, and its changes stay in this process's memory as after any such failure;
    ///         `REGLIB_E_FAIL` without an update of this thread or memory; `REGLIB_E_NOT_INITIALIZED`
    int VQRegEndUpdate();

    /// Makes every process, this one included, read the file again at its next operation: for who has
    /// changed the file by other means than the library, with an editor for example. What only the
    /// memory of a process has stays there, as at every reading.
    /// @return `REGLIB_OK`; `REGLIB_E_FAIL` while this thread has an update on the file, or when
    ///         memory is short; `REGLIB_E_FILE_OPEN` when the lock cannot be had;
    ///         `REGLIB_E_NOT_INITIALIZED`
    int VQRegReload();

    /// Tells every process of the machine, this one included, to look for changes now. Nothing does
    /// so by itself: call it after the changes that others wait for.
    /// @return `REGLIB_OK`, also when the session has no store; `REGLIB_E_FAIL`. Neither says
    ///         whether anybody was told.
    int SendRegistryChangeNotification();

private:
    friend class CRegLibAccess;
    CRegLibImpl* m_pImpl;
};

/// An update for the length of a scope.
///
///     CRegUpdate update(session);
///     session.VQRegSetValue(key, "Address", "10.0.0.7");
///     session.VQRegSetValue(key, "Port", 8080ul);
///     if (update.end() < 0) { ... }
class CRegUpdate {
public:
    /// Begins an update; `result` says whether it could. The session must outlive the object.
    explicit CRegUpdate(CRegLib& session)
        : m_session(session), m_result(session.VQRegBeginUpdate()), m_begun(m_result >= 0) {}

    /// Ends the update unless `end` has; the result is lost.
    ~CRegUpdate() { end(); }

    CRegUpdate(const CRegUpdate&) = delete;
    CRegUpdate& operator=(const CRegUpdate&) = delete;

    /// What `VQRegBeginUpdate` returned, and after `end` what `VQRegEndUpdate` did.
    int result() const { return m_result; }

    /// Ends the update now; later calls do nothing.
    /// @return as `result`
    int end() {
        if (m_begun) {
            m_begun = false;
            m_result = m_session.VQRegEndUpdate();
        }
        return m_result;
    }

private:
    CRegLib& m_session;
    int m_result;
    bool m_begun;
};

}  // namespace VQRegLib

/// Thrown where memory runs out while a key handle is filled, and by the construction of the
/// library's own objects; the latter never reaches a caller of a session.
class VQREGLIB_EXPORT VQException {
public:
    /// @param code  a result code; the low 32 bits are kept
    /// @param file  where it was thrown; null gives an empty text
    /// @param line  the line there
    VQException(long code, const char* file, long line);
    virtual ~VQException();
    VQException(const VQException&) = default;             ///< exceptions are copied when thrown
    VQException& operator=(const VQException&) = default;  ///< all members

    std::int32_t m_lCode;  ///< a result code
    char m_szText[272];    ///< file and line with a point between, at most 269 characters
};

#endif  // VQREGLIB_H
