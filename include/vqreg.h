/** @file
 * The store for programs in C, and in whatever calls C.
 *
 * A store is a tree of keys with typed values below them, one text file that all programs of the machine
 * share: VQRegLib.h says more about stores, and a store that is opened here is the same that C++ programs
 * open there. Reading never waits for another process; every change is in the file when the call that
 * made it has returned #VQREG_OK, where the file can be replaced.
 *
 * **Keys** are named by paths below the store's root key, names with "/" or "\\" between them:
 * "Network/Ports". A null pointer, "" and "/" mean the root key itself. Names are found regardless of ASCII
 * case. Each operation takes a path; where one key is used often, open it (vqreg_open_key()) and use the
 * operations vqreg_key_..., which do not look the path up. A store remembers the keys that were named by
 * path until they are deleted or it is closed.
 *
 * **Values** are unsigned 32-bit numbers, texts, or bytes. Texts and names are NUL-terminated byte
 * strings; the library looks at no encoding. What the file cannot give back is refused with
 * #VQREG_E_NOT_STORABLE before anything is changed: line ends in names and texts, double quotes and
 * colons in value names, "]" in key names, and lines of more than 2047 bytes, which hold about 1000 bytes
 * of a binary value.
 *
 * **Results.** 0 is success, everything negative a failure; vqreg_strerror() has a text for each. Every
 * operation may return #VQREG_E_FAIL when memory is short or a pointer that it needs is null,
 * #VQREG_E_BAD_FORMAT when the file has a malformed line, and #VQREG_E_FILE_OPEN when the file cannot be
 * read, or the new file that is to replace it not be written. The change then stays in this process's memory
 * and goes out with the next one that succeeds; the same call again finds nothing to change, and returns
 * #VQREG_OK without writing. What writes it for certain is an update, which may be empty. Every change
 * returns #VQREG_E_FAIL while the calling thread has an update on the same file through another store.
 * vqreg_why() tells people more. No exception leaves a call.
 *
 * **What others delete** stays in the memory of a process that has read it, and readable there, until that
 * process deletes it or ends; its next change of anything writes it again. A key that others have made a
 * value is out of reach for paths and open keys at once; where that is the root key or one above it, all
 * operations on keys and values return #VQREG_E_INVALID_HANDLE.
 *
 * **Threads.** Any number of threads may use one store, and one key of it. vqreg_close(),
 * vqreg_close_key() and vqreg_watch_close() need all others to be done with the object; a watch belongs
 * to one thread at a time. Cancellation of a thread is put off until its call is done. After a fork of a
 * process with several threads the child may use the library only if no other thread was inside a call of
 * it; a child must not use the watches of its parent, but may close them.
 */
#ifndef VQREG_H
#define VQREG_H

/** The version of this header; vqreg_version() has that of the library. */
#define VQREG_VERSION "1.0.0"

#include <stddef.h>
#include <stdint.h>

/** Marks what the shared library exports. */
#if defined(__GNUC__)
#define VQREG_EXPORT __attribute__((visibility("default")))
#else
#define VQREG_EXPORT
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** @name Result codes
 * @{ */
#define VQREG_OK 0 /**< success */
/** memory is short, a pointer is null, or a system object could not be made */
#define VQREG_E_FAIL (-1054535776)
#define VQREG_E_NOT_FOUND (-1054535774)     /**< no value of that name */
#define VQREG_E_NOT_A_KEY (-1054535773)     /**< a name of the path is a value's */
#define VQREG_E_NOT_A_VALUE (-1054535772)   /**< the name is a sub key's */
#define VQREG_E_KEY_NOT_FOUND (-1054535768) /**< no key of that path */
#define VQREG_E_BAD_TYPE (-1054535760)      /**< the value has another type */
/** the buffer is too small; the size that is needed has been written back */
#define VQREG_E_BUFFER_TOO_SMALL (-1054535759)
#define VQREG_E_BAD_FORMAT (-1054535758) /**< the file has a malformed line */
/** the open key has been deleted by this process, or a value has its name or that of a key above it */
#define VQREG_E_INVALID_HANDLE (-1054535757)
#define VQREG_E_KEY_NOT_EMPTY (-1054535756) /**< the key has sub keys or values */
/** the file, or the new file that is to replace it, could not be opened */
#define VQREG_E_FILE_OPEN (-1054535755)
#define VQREG_E_NOT_INITIALIZED (-1054535753) /**< there is no store */
/** the file could not give back the name or the data */
#define VQREG_E_NOT_STORABLE (-1054535744)
/** @} */

/** The type of a value: one of the constants below. Later versions may know others. */
typedef int32_t vqreg_type;
#define VQREG_NONE 0   /**< there is no value */
#define VQREG_BINARY 1 /**< bytes */
#define VQREG_DWORD 2  /**< an unsigned 32-bit number */
#define VQREG_STRING 3 /**< a text; sizes count its NUL */

/** An open store. */
typedef struct vqreg_store vqreg_store;
/** An open key of a store. */
typedef struct vqreg_key vqreg_key;
/** What changes below a key. */
typedef struct vqreg_watch vqreg_watch;

/** @name Stores
 * @{ */

/** The version of the library, as #VQREG_VERSION. Never null, never to be freed. */
VQREG_EXPORT const char* vqreg_version(void);

/** Opens a store.
 * @param file    absolute path of its file, which is made when it is missing; null for the machine's
 *                default store, "/velquist/etc/Velquist.cfg" where "/velquist/etc" exists and
 *                "/etc/Velquist.cfg" otherwise
 * @param root    name or path of the root key; null for "Velquist"
 * @param result  may be null; receives #VQREG_OK, #VQREG_E_NOT_INITIALIZED when the store cannot be
 *                opened, #VQREG_E_NOT_STORABLE for a root key that the file could not give back, or
 *                #VQREG_E_FAIL
 * @return the store, for vqreg_close(); null when there is none */
VQREG_EXPORT vqreg_store* vqreg_open(const char* file, const char* root, int* result);

/** Closes a store. It stays open until its keys and watches are closed as well. An update that was begun
 * through it and not ended is over, if the thread that began it closes the store: nothing of it is written,
 * nor what could not be written before, unless one that was begun through another #vqreg_store is still open,
 * of which it becomes a part, or the file is missing by then and is made anew. Null is ignored. */
VQREG_EXPORT void vqreg_close(vqreg_store* store);

/** The path of a store's file, behind the symbolic links that led to it. Valid until the store is closed. */
VQREG_EXPORT const char* vqreg_file(const vqreg_store* store);

/** A sentence for a result code, in English, without a full stop. Never null, never to be freed. */
VQREG_EXPORT const char* vqreg_strerror(int result);

/** Says why a store cannot be used: its directory is missing or may not be written, the file may not be
 * read, or is malformed, with line and column, or is something else than a file. Does not open it.
 * @param file    as for vqreg_open()
 * @param text    receives what fits of the sentence, always with a NUL; may be null when size is 0
 * @param size    of the buffer, in bytes
 * @return the length of the whole sentence, without its NUL; 0 when nothing was found that stands in the way */
VQREG_EXPORT size_t vqreg_why(const char* file, char* text, size_t size);

/** Tells which file a store is, without opening or making it.
 * @param file    as for vqreg_open()
 * @param path    receives what fits of the path, behind the symbolic links that lead to it, always with a
 *                NUL; may be null when size is 0
 * @param size    of the buffer, in bytes
 * @return the length of the whole path, without its NUL; 0 when memory is short */
VQREG_EXPORT size_t vqreg_which(const char* file, char* path, size_t size);

/** Says why the file could not give back a value (#VQREG_E_NOT_STORABLE), with the first byte that is wrong.
 * @param store  null for any store with the usual root key, which need not exist
 * @param path   of the key, as below; it need not exist
 * @param name   of the value; null for the key alone
 * @param type   of the data
 * @param data   as for vqreg_get(), with a size that does not count the NUL of a text, which may then hold
 *               others; null when size is 0
 * @param text   receives the sentence as vqreg_why() gives it
 * @return the length of the whole sentence; 0 when the file can give it back */
VQREG_EXPORT size_t vqreg_why_not_storable(const vqreg_store* store, const char* path,
                                           const char* name, vqreg_type type, const void* data,
                                           size_t size, char* text, size_t room);

/** Begins an update: the changes up to its end become one write of the file, and other processes see all
 * of them or none. Other threads of the process that use the store wait, and so does whoever wants to
 * change it. Updates nest; the thread that began one ends it, through the same store.
 *
 * In an update open no store, and close no other one, nor the last key or watch of one that is closed already:
 * that waits for a thread that is opening a store, and that one may be waiting for the update.
 * @return #VQREG_OK, or the update has not begun */
VQREG_EXPORT int vqreg_begin_update(vqreg_store* store);

/** Ends an update. The end of the outermost one writes the file if anything has changed.
 * @return #VQREG_OK; #VQREG_E_FILE_OPEN when it cannot be written: the update has ended all the same, and
 *         the end of the next one tries again; #VQREG_E_FAIL without an update of this thread */
VQREG_EXPORT int vqreg_end_update(vqreg_store* store);

/** Makes every process read the file again, which has been changed by other means than the library. */
VQREG_EXPORT int vqreg_reload(vqreg_store* store);

/** Tells every process of the machine to look for changes now. C++ programs with change handlers wait
 * for that; watches need no telling. */
VQREG_EXPORT int vqreg_notify(vqreg_store* store);
/** @} */

/** @name Keys
 * @{ */

/** Opens a key, or makes it.
 * @param path    below the root key
 * @param create  0 opens one that exists; otherwise the missing keys of the path are made
 * @param key     receives the key, for vqreg_close_key(); null on failure
 * @return #VQREG_OK; #VQREG_E_KEY_NOT_FOUND; #VQREG_E_NOT_A_KEY; #VQREG_E_NOT_STORABLE */
VQREG_EXPORT int vqreg_open_key(vqreg_store* store, const char* path, int create, vqreg_key** key);

/** Closes a key. Null is ignored. */
VQREG_EXPORT void vqreg_close_key(vqreg_key* key);

/** Makes a key, with the keys above it. One that exists is left as it is.
 * @return as for vqreg_open_key() */
VQREG_EXPORT int vqreg_create_key(vqreg_store* store, const char* path);

/** Whether there is a key.
 * @return #VQREG_OK; #VQREG_E_KEY_NOT_FOUND; #VQREG_E_NOT_A_KEY */
VQREG_EXPORT int vqreg_has_key(vqreg_store* store, const char* path);

/** Deletes an empty key.
 * @return #VQREG_OK; #VQREG_E_KEY_NOT_FOUND; #VQREG_E_NOT_A_KEY; #VQREG_E_KEY_NOT_EMPTY */
VQREG_EXPORT int vqreg_delete_key(vqreg_store* store, const char* path);
/** @} */

/** @name Values of a key that is named by its path
 * Those that set make the keys that are missing; all others return #VQREG_E_KEY_NOT_FOUND, or
 * #VQREG_E_NOT_A_KEY where a name of the path is a value's.
 * @{ */

/** Reads a number.
 * @param number  receives it; unchanged on failure
 * @return #VQREG_OK; #VQREG_E_NOT_FOUND; #VQREG_E_NOT_A_VALUE; #VQREG_E_BAD_TYPE */
VQREG_EXPORT int vqreg_get_dword(vqreg_store* store, const char* path, const char* name,
                                 uint32_t* number);

/** Reads a text.
 * @param text  receives it with its NUL; unchanged on failure; null asks for the size
 * @param size  in: of the buffer; out: of the text with its NUL
 * @return as for a number; #VQREG_E_BUFFER_TOO_SMALL */
VQREG_EXPORT int vqreg_get_string(vqreg_store* store, const char* path, const char* name,
                                  char* text, size_t* size);

/** Reads bytes.
 * @param bytes  receives them; unchanged on failure; null asks for the size
 * @param size   in: of the buffer; out: how many there are
 * @return as for a text */
VQREG_EXPORT int vqreg_get_binary(vqreg_store* store, const char* path, const char* name,
                                  void* bytes, size_t* size);

/** Reads a value of any type.
 * @param type  receives the type; #VQREG_NONE when there is no value
 * @param data  receives a number as 4 bytes in the machine's order, a text with its NUL, or bytes; null
 *              asks for the size
 * @param size  in: of the buffer; out: of the data
 * @return #VQREG_OK; #VQREG_E_NOT_FOUND; #VQREG_E_NOT_A_VALUE; #VQREG_E_BUFFER_TOO_SMALL */
VQREG_EXPORT int vqreg_get(vqreg_store* store, const char* path, const char* name, vqreg_type* type,
                           void* data, size_t* size);

/** Sets a value to a number, whatever type it had. The file is written only when the value changes.
 * @return #VQREG_OK; #VQREG_E_NOT_A_VALUE; #VQREG_E_NOT_STORABLE */
VQREG_EXPORT int vqreg_set_dword(vqreg_store* store, const char* path, const char* name,
                                 uint32_t number);

/** Sets a value to a text.
 * @return as for a number */
VQREG_EXPORT int vqreg_set_string(vqreg_store* store, const char* path, const char* name,
                                  const char* text);

/** Sets a value to bytes.
 * @param bytes  may be null when size is 0
 * @return as for a number */
VQREG_EXPORT int vqreg_set_binary(vqreg_store* store, const char* path, const char* name,
                                  const void* bytes, size_t size);

/** Deletes a value.
 * @return #VQREG_OK; #VQREG_E_NOT_FOUND; #VQREG_E_NOT_A_VALUE */
VQREG_EXPORT int vqreg_delete_value(vqreg_store* store, const char* path, const char* name);
/** @} */

/** @name Values of an open key
 * As the ones above, but that none makes a key: all return #VQREG_E_INVALID_HANDLE when this process has
 * deleted it, or a value has its name or that of a key above it. What was asked for is then not done.
 * @{ */
/** As vqreg_get_dword(). */
VQREG_EXPORT int vqreg_key_get_dword(vqreg_key* key, const char* name, uint32_t* number);
/** As vqreg_get_string(). */
VQREG_EXPORT int vqreg_key_get_string(vqreg_key* key, const char* name, char* text, size_t* size);
/** As vqreg_get_binary(). */
VQREG_EXPORT int vqreg_key_get_binary(vqreg_key* key, const char* name, void* bytes, size_t* size);
/** As vqreg_get(). */
VQREG_EXPORT int vqreg_key_get(vqreg_key* key, const char* name, vqreg_type* type, void* data,
                               size_t* size);
/** As vqreg_set_dword(). */
VQREG_EXPORT int vqreg_key_set_dword(vqreg_key* key, const char* name, uint32_t number);
/** As vqreg_set_string(). */
VQREG_EXPORT int vqreg_key_set_string(vqreg_key* key, const char* name, const char* text);
/** As vqreg_set_binary(). */
VQREG_EXPORT int vqreg_key_set_binary(vqreg_key* key, const char* name, const void* bytes,
                                      size_t size);
/** As vqreg_delete_value(). */
VQREG_EXPORT int vqreg_key_delete_value(vqreg_key* key, const char* name);
/** @} */

/** @name What is in a key
 * In the order of the lower-case names. The names are taken first, then given out, so a visitor may
 * change the store. A value that another thread deletes meanwhile is left out.
 * @{ */

/** Is told the name of a sub key. @return 0 to go on; anything else ends the walk, and is its result */
typedef int (*vqreg_key_visitor)(void* context, const char* name);

/** Is told a value: name, type and data as vqreg_get() gives them, valid during the call.
 * @return as for a key */
typedef int (*vqreg_value_visitor)(void* context, const char* name, vqreg_type type,
                                   const void* data, size_t size);

/** Visits the sub keys of a key.
 * @return #VQREG_OK; what a visitor returned; #VQREG_E_KEY_NOT_FOUND; #VQREG_E_NOT_A_KEY */
VQREG_EXPORT int vqreg_visit_keys(vqreg_store* store, const char* path, vqreg_key_visitor visitor,
                                  void* context);

/** Visits the values of a key.
 * @return as for sub keys */
VQREG_EXPORT int vqreg_visit_values(vqreg_store* store, const char* path,
                                    vqreg_value_visitor visitor, void* context);

/** Visits the sub keys of an open key. @return as vqreg_visit_keys(); #VQREG_E_INVALID_HANDLE */
VQREG_EXPORT int vqreg_key_visit_keys(vqreg_key* key, vqreg_key_visitor visitor, void* context);

/** Visits the values of an open key. @return as vqreg_visit_values(); #VQREG_E_INVALID_HANDLE */
VQREG_EXPORT int vqreg_key_visit_values(vqreg_key* key, vqreg_value_visitor visitor, void* context);

/** Lists the names of a key's sub keys.
 * @param names  receives an array of the names with a null pointer behind the last one: one piece of
 *               memory, to be given to vqreg_free(); null on failure
 * @param count  may be null; receives how many there are
 * @return as vqreg_visit_keys() */
VQREG_EXPORT int vqreg_list_keys(vqreg_store* store, const char* path, char*** names,
                                 size_t* count);

/** Lists the names of a key's values, as vqreg_list_keys() does those of its sub keys. */
VQREG_EXPORT int vqreg_list_values(vqreg_store* store, const char* path, char*** names,
                                   size_t* count);

/** Frees a list. Null is ignored. */
VQREG_EXPORT void vqreg_free(void* list);
/** @} */

/** @name Changes
 * @{ */

/** One state of a value. */
typedef struct vqreg_data {
    vqreg_type type;  /**< #VQREG_NONE when there is no value */
    size_t size;      /**< in bytes */
    const void* data; /**< as vqreg_get() gives it; null without a value */
} vqreg_data;

/** A change of one value, or of one key. All texts and data, and the change itself, are valid until the next
 * call for the watch. Later versions may add members behind the last one. */
typedef struct vqreg_change {
    const char* path;  /**< of the key, below the root key; "" for the root key itself */
    const char* name;  /**< of the value; null where the key itself was made or deleted */
    vqreg_data before; /**< of the value */
    vqreg_data after;  /**< of the value */
    int is_present;    /**< whether the key, or the value, is there now */
} vqreg_change;

/** Watches a key and everything below it, whoever changes it.
 *
 * A watch has a copy of the file's tree and reads the file at each change: of a large store have few, and
 * look at the paths. It tells what is in the file, where a key or value may be gone that this process can
 * still read (see above), and what was edited by hand, which queries give after vqreg_reload() only. Writing
 * into the file without closing it, and truncate(2), are not noticed. A watch that begins while the
 * file is missing tells what changes in the first one that it finds.
 * @param path    need not exist
 * @param result  may be null; receives #VQREG_OK, #VQREG_E_NOT_STORABLE, #VQREG_E_BAD_FORMAT,
 *                #VQREG_E_FILE_OPEN, or #VQREG_E_FAIL, also when the system has no descriptor or no
 *                watch of files left
 * @return the watch, for vqreg_watch_close(); null on failure */
VQREG_EXPORT vqreg_watch* vqreg_watch_open(vqreg_store* store, const char* path, int* result);

/** A descriptor for poll, epoll or an event loop: readable when there may be a change. Do not read from
 * it and do not close it; vqreg_watch_next() makes it quiet again. */
VQREG_EXPORT int vqreg_watch_fd(const vqreg_watch* watch);

/** Hands out the next change, in the order of paths and names. Never waits. Call it until it returns 0 or
 * less: the first call makes the descriptor quiet, and changes that are left do not make it readable.
 * Several changes of one value that came before the call count as one, and as none when it is what it was.
 * @param change  receives the change, which the watch owns; null without one
 * @return 1 with a change; 0 when there is none; #VQREG_E_BAD_FORMAT while the file is malformed,
 *         #VQREG_E_FILE_OPEN while it cannot be read: ask again when the descriptor is readable. While the
 *         file's directory is missing the descriptor is not, nor where the system has no watch left: ask again
 *         later. Nor does it become so when a directory above that one is replaced, which the next call
 *         finds: ask every few seconds. #VQREG_E_FAIL while there is no memory or no descriptor for the file:
 *         the descriptor stays readable, so wait a moment before asking again */
VQREG_EXPORT int vqreg_watch_next(vqreg_watch* watch, const vqreg_change** change);

/** Ends a watch and closes its descriptor. Null is ignored. */
VQREG_EXPORT void vqreg_watch_close(vqreg_watch* watch);
/** @} */

#ifdef __cplusplus
}
#endif

#endif /* VQREG_H */
