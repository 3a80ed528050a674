// ZSharedLibrary: loads a shared library by name, finds its symbols and unloads it.
//
// Subsystem: platform.  Stands on: ZObject, ZException, ZLCString.
//
// Ownership: an object owns the name and the text of the last error. Its destructor leaves the
// library loaded, so that symbols stay valid; call unloadLibrary() to unload it.
// Threads: an object belongs to one thread at a time; any thread may call the plain functions.
#pragma once

#ifdef __cplusplus

#include "ZLCString.h"
#include "ZObject.h"

extern "C" {
#endif

/// Loads a library with dlopen() and returns its handle, or null.
/// range   a null `name` fails with 2 (ENOENT). `flags` are dlopen()'s; 0 means
///         RTLD_NOW | RTLD_GLOBAL.
/// owns    released with zdlclose_6_0().
/// codes   `*err` (unless `err` is null) is 0 or, on failure, the errno left by dlopen(), which may
///         be 0 too: only a null result indicates the failure.
void* zdlopen_6_0(char const* name, int flags, int* err);

/// Finds a symbol with dlsym().
/// owns    borrowed until the library is unloaded.
/// codes   as zdlopen_6_0().
/// kept    for a null `handle` or `symbol`, returns null and sets `*err` to the current errno.
void* zdlsym_6_0(void* handle, char const* symbol, int* err);

/// Unloads a library with dlclose() and returns 0, or another number on failure.
/// codes   `*err` (unless `err` is null) is 0, 2 for a null `handle`, or errno.
int zdlclose_6_0(void* handle, int* err);

/// Returns the text of the calling thread's last failure; null after none.
/// owns    owned by the caller; released with free().
char* zdlerror_6_0(void);

#ifdef __cplusplus
}

/// The interface of shared libraries, with their name, flags and last error.
class ZAbstractSharedLibrary_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.
    virtual ~ZAbstractSharedLibrary_6_0();

    virtual ZLCString_6_0 const& getLibraryName() const;

    /// Returns the flags for dlopen(); 0 until something sets them.
    virtual int getFlags() const;
    virtual void setFlags(int flags);

    virtual ZLCString_6_0 const& getLastErrorMessage() const;
    virtual int getLastErrorNumber() const;

    /// Returns whether symbols are kept out of the global scope of the process.
    virtual int getLocalScope() const = 0;
    virtual void setLocalScope(int local) = 0;

    /// Returns whether functions are resolved when they are first called.
    virtual int getLazyResolution() const = 0;
    virtual void setLazyResolution(int lazy) = 0;

    virtual void loadLibrary() = 0;
    virtual void unloadLibrary() = 0;

    /// Returns the address of `symbol`.
    virtual void* resolveSymbol(char const* symbol) = 0;

    virtual void setLastErrorMessage(char const* message);
    virtual void setLastErrorNumber(int number);

protected:
    explicit ZAbstractSharedLibrary_6_0(char const* name);
    ZAbstractSharedLibrary_6_0(ZAbstractSharedLibrary_6_0 const&);
    ZAbstractSharedLibrary_6_0& operator=(ZAbstractSharedLibrary_6_0 const&) = delete;

    ZLCString_6_0 name_;
    ZLCString_6_0 suffix1_;  // ".so"; empty ends the search
    ZLCString_6_0 suffix2_;  // ".so"
    int flags_;              // dlopen()'s; 0 for zdlopen_6_0()'s default

private:
    ZLCString_6_0 errorMessage_;
    int errorNumber_;
};

/// A shared library of the platform.
class ZSharedLibrary_6_0 : public ZAbstractSharedLibrary_6_0, public ZObject_6_0 {
public:
    /// Makes an object with an empty library name.
    ZSharedLibrary_6_0();

    /// Stores the library name; does not load the library.
    /// owns    `name` is copied.
    explicit ZSharedLibrary_6_0(char const* name);

    /// Copies name and flags; the copy is not loaded.
    ZSharedLibrary_6_0(ZSharedLibrary_6_0 const& other);

    // Virtual functions in slot order. The order is binary interface: append only.

    /// Leaves the library loaded.
    ~ZSharedLibrary_6_0() override;

    /// Returns 0.
    /// kept    the result does not depend on the flags.
    int getLocalScope() const override;

    /// Clears RTLD_GLOBAL in the flags if `local` is not 0; sets it if `local` is 0.
    /// kept    flags of 0 stay 0, and loadLibrary() then uses the global scope.
    void setLocalScope(int local) override;

    /// Returns the RTLD_LAZY bit of the flags.
    int getLazyResolution() const override;

    /// Replaces RTLD_NOW by RTLD_LAZY in the flags if `lazy` is not 0; the reverse if it is 0.
    void setLazyResolution(int lazy) override;

    /// Loads the library and calls initialize(). If the name cannot be loaded, tries it without
    /// its suffix ".so", or with the suffix added.
    /// range   not loaded yet: a second call drops the first handle without unloading it.
    /// throws  ZSharedLibraryLoadException_6_0 with the error of the first attempt or, if
    ///         initialize() fails, with the text "initialize"; the library is loaded then.
    /// kept    both suffixes are ".so", so the second spelling is tried twice.
    void loadLibrary() override;

    /// Unloads the library.
    /// throws  ZSharedLibraryLoadException_6_0 if it is not loaded (number 2) or dlclose() fails;
    ///         it stays loaded then.
    void unloadLibrary() override;

    /// Returns the address of `symbol`.
    /// owns    borrowed until the library is unloaded.
    /// throws  ZSharedLibraryResolveException_6_0.
    void* resolveSymbol(char const* symbol) override;

    /// Compares the library names.
    /// range   with an object of another class, compares addresses.
    int compare(ZObject_6_0 const& other) const override;

    /// Returns the hash of the library name.
    uint32_t hash() const override;

    /// Returns a copy.
    /// owns    owned by the caller; released with delete.
    ZObject_6_0* clone() const override;

    /// Returns the handle of the loaded library; null if it is not loaded.
    virtual void* getHandle() const;

    /// Returns 0. loadLibrary() calls it after loading; a non-zero result makes loadLibrary() fail.
    virtual int initialize();

private:
    void setLastError(int number);
    [[noreturn]] void raiseLoad(int site);

    void* handle_;
};

#endif
