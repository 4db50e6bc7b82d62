/// @file
/// The store as a program in C++17 wants it.
///
///     vqreg::Store store;                                        // the machine's default store
///     vqreg::Key ports = store.create("Network/Ports");          // opens it, or makes it
///     unsigned http = ports.get_or("Http", 80u);
///     std::optional<std::string> host = ports.get<std::string>("Host");
///     ports.set("Http", 8081);
///     ports.erase("Old");
///     for (const vqreg::Value& value : ports.values()) { ... }   // value.name(), value.as<unsigned>()
///
/// Headers alone, on `VQRegLib.h` and `vqreg.h`: a program links the library and nothing else, and objects
/// of all three may be in use on one store at the same time. VQRegLib.h says what a store is. Queries go
/// straight to the library; what is not to be said twice, which texts the file can hold, what has changed
/// and why a store cannot be used, comes from vqreg.h.
///
/// **Failures** throw `vqreg::Error`, with a code, a text for people, and the path and name that it is
/// about; with a `std::error_code&` as the last argument they do not, and nothing but `std::bad_alloc`
/// leaves the call. Both forms need a compiler that has exceptions switched on. All operations have both but
/// `Store::exclusively`, which lets through what its function throws. That a value, or what is to be deleted, is not there is no failure; that a value has
/// another type, or a number that the variable has no room for, is one.
///
/// **What the file could not give back** is refused with `errc::not_storable` before anything is changed:
/// line ends in names and texts, a NUL in them, double quotes and colons in value names, "]" in key names,
/// and lines of more than 2047 bytes.
///
/// **Lifetimes.** Every object keeps its store open, so they may be destroyed in any order. All may be
/// moved, and only `Value`, `Change` and `Error`, which are no part of a store, copied. What has been moved from may be destroyed, and be given another value.
///
/// **Threads.** Any number of threads may use one `Store` and one `Key` at the same time; moving one,
/// assigning to it and destroying it need all others to be done with it. `Value` and `Change` are values
/// like a `std::string`. An `Update` and a `Changes` belong to one thread at a time. A `Watch` calls its
/// function on a thread of its own. After a fork of a process with several threads the child may use a
/// store only if no other thread was inside a call of the library; a child must not use the watches of its
/// parent, but may destroy them.
#ifndef VQREGSTORE_H
#define VQREGSTORE_H

#if __cplusplus < 201703L
#error "VQRegStore.h needs C++17 or later; VQRegLib.h does with C++11"
#endif

#include "VQRegStore/Error.h"
#include "VQRegStore/Store.h"
#include "VQRegStore/Types.h"
#include "VQRegStore/Update.h"
#include "VQRegStore/Value.h"
#include "VQRegStore/Watch.h"

#endif  // VQREGSTORE_H
