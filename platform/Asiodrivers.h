// Where installed ASIO drivers are found and how they are created.
//
// Windows: the sub-keys of HKEY_LOCAL_MACHINE "Software\ASIO" (64-bit view,
// KEY_READ), each with a string value "clsid", and COM in-process activation
// (CoCreateInstance with CLSCTX_INPROC_SERVER).
//
// Elsewhere there is no registry and no COM: a process-wide catalogue stands
// in for both. It holds the root key (present or absent), the driver keys in
// insertion order, each with an optional "clsid" text, and a factory per
// class identifier. A driver built into the process (the test driver, or an
// application's own) registers itself with CatalogueAddKey and
// CatalogueRegisterClass; the functions above it then behave exactly as the
// Windows ones do, failures included. The Catalogue* functions exist only in
// that build; on Windows the real registry is written with the system's own
// tools (regsvr32, RegCreateKeyEx).
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/Guid.h"

namespace Quorvel::Asiodrivers {

// [any thread] Appends the driver key names in the order the registry
// enumerates them. False, appending nothing, when the root key is absent or
// cannot be opened; true (possibly appending nothing) otherwise.
bool EnumerateDriverKeys(std::vector<std::string>& Names);
// [any thread] Whether the driver key exists and can be opened for reading.
bool DriverKeyExists(const std::string& Name);
// [any thread] The key's "clsid" string value. False when the key or the
// value is missing or the value is not a string.
bool ReadDriverClsid(const std::string& Name, std::string& ClsidText);
// [any thread] CLSIDFromString: "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}"
// (hexadecimal digits in either case). Windows also accepts what the system
// accepts (a registered ProgID). False, Clsid set to all zeros, otherwise.
bool ClsidFromText(const std::string& Text, TGUID& Clsid);
// [a thread in a COM apartment] Creates an in-process object of class Clsid
// and asks it for Iid. Answers the interface pointer holding one reference
// the caller releases, or nullptr on any failure. A driver registered with
// ThreadingModel "Apartment" needs a single-threaded apartment on the calling
// thread (see InitializeComForThisThread).
void* CreateInprocInstance(const TGUID& Clsid, const TGUID& Iid);
// [any thread] Makes the calling thread a single-threaded COM apartment
// (CoInitializeEx with COINIT_APARTMENTTHREADED) if it is not one yet. True
// when the thread is a single-threaded apartment afterwards; false when it is
// already multithreaded (COM will not change that) or COM failed. Calling it
// again is harmless; the apartment lives as long as the thread (nothing
// balances it). Does nothing and answers true where there is no COM.
bool InitializeComForThisThread();

// The in-process catalogue (builds without registry and COM only). All of it
// is process-wide and guarded by one lock.
// [any thread] Whether the root key exists; it starts present and empty.
void CatalogueSetRootPresent(bool Present);
// [any thread] Adds a driver key (or replaces the value of an existing one,
// keeping its place). ClsidText nullptr: the key has no "clsid" value.
void CatalogueAddKey(const std::string& Name, const std::string* ClsidText);
// [any thread] Removes a driver key; unknown names are ignored.
void CatalogueRemoveKey(const std::string& Name);
// [any thread] Registers the factory of class Clsid, replacing an earlier
// one. The factory is called, outside the catalogue's lock, with the
// requested interface identifier and answers an interface pointer holding one
// reference, or nullptr when it does not implement that interface.
void CatalogueRegisterClass(const TGUID& Clsid, std::function<void*(const TGUID& Iid)> Factory);
// [any thread] Forgets class Clsid; objects already created live on.
void CatalogueUnregisterClass(const TGUID& Clsid);
// [any thread] Back to the start state: root present, no keys, no classes.
void CatalogueClear();

}  // namespace Quorvel::Asiodrivers
