// ZSharedLibrary: loads a shared library by name, finds its symbols and unloads it.
//
// Subsystem: platform.  Stands on: ZObject, ZException, ZLCString.
//
// Ownership: an object owns the name and the last error's text; the library stays loaded when the
// object goes, so that its symbols stay good: unload it first where that is not wanted.
// Threads: an object belongs to one thread at a time; the plain functions are for every thread.
#pragma once

#ifdef __cplusplus

#include "ZLCString.h"
#include "ZObject.h"

extern "C" {
#endif

/// Loads a library with dlopen().
/// range   null `name`: null, and 2 (ENOENT) in `*err`. `flags` are dlopen()'s; 0 means
///         RTLD_NOW | RTLD_GLOBAL.
/// owns    released with zdlclose_6_0().
/// codes   `*err` (unless `err` is null) is 0, or the errno that a failing dlopen() left, which may
///         be 0: the result tells.
void* zdlopen_6_0(char const* name, int flags, int* err);

/// Finds a symbol with dlsym().
/// owns    borrowed until the library is unloaded.
/// codes   as zdlopen_6_0().
/// kept    a null `handle` or `symbol` gives null, and in `*err` whatever errno happens to hold.
void* zdlsym_6_0(void* handle, char const* symbol, int* err);

/// Unloads a library with dlclose(); returns 0, or what makes the call a failure.
/// codes   `*err` (unless `err` is null) is 0, 2 for a null `handle`, or errno.
int zdlclose_6_0(void* handle, int* err);

/// Returns the text of the calling thread's last failure, null when there is none.
/// owns    owned by the caller; released with free().
char* zdlerror_6_0(void);

#ifdef __cplusplus
}

/// What a shared library can be asked for.
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

    /// Returns whether symbols stay out of the process's global scope.
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
    /// Names no library.
    ZSharedLibrary_6_0();

    /// Names a library; loads nothing.
    /// owns    `name` is copied.
    explicit ZSharedLibrary_6_0(char const* name);

    /// Names the same library with the same flags; the copy is not loaded.
    ZSharedLibrary_6_0(ZSharedLibrary_6_0 const& other);

    // Virtual functions in slot order. The order is binary interface: append only.

    /// Leaves the library loaded.
    ~ZSharedLibrary_6_0() override;

    /// Returns 0.
    /// kept    whatever the flags; callers read the flags.
    int getLocalScope() const override;

    /// Takes RTLD_GLOBAL out of the flags for a non-zero `local`, puts it in for 0.
    /// kept    flags that are 0 stay 0 when it is taken out, and 0 loads globally.
    void setLocalScope(int local) override;

    /// Returns the RTLD_LAZY bit of the flags.
    int getLazyResolution() const override;

    /// Replaces RTLD_NOW by RTLD_LAZY in the flags for a non-zero `lazy`, the other way for 0.
    void setLazyResolution(int lazy) override;

    /// Loads the library and calls initialize(). A name that does not load is tried without its
    /// suffix ".so" when it has it, with it otherwise.
    /// range   not loaded yet; the handle of an earlier load is forgotten, and that library stays.
    /// throws  ZSharedLibraryLoadException_6_0 with the error of the first attempt, or, when
    ///         initialize() fails, with the text "initialize"; the library is loaded then.
    /// kept    with two slots of one suffix, the other spelling is tried twice.
    void loadLibrary() override;

    /// Unloads the library.
    /// throws  ZSharedLibraryLoadException_6_0 when it is not loaded (number 2) or does not let go;
    ///         it stays loaded then.
    void unloadLibrary() override;

    /// Returns the address of `symbol`.
    /// owns    borrowed until the library is unloaded.
    /// throws  ZSharedLibraryResolveException_6_0.
    void* resolveSymbol(char const* symbol) override;

    /// Compares the library names.
    /// range   `other` is a ZSharedLibrary_6_0; with anything else compares addresses.
    int compare(ZObject_6_0 const& other) const override;

    /// Returns the hash of the library name.
    uint32_t hash() const override;

    /// Returns a copy.
    /// owns    owned by the caller; released with delete.
    ZObject_6_0* clone() const override;

    /// Returns the handle of the loaded library; null while there is none.
    virtual void* getHandle() const;

    /// Is called after a successful load; a non-zero result makes loadLibrary() fail. Returns 0.
    virtual int initialize();

private:
    void setLastError(int number);
    [[noreturn]] void raiseLoad(int site);

    void* handle_;
};

#endif
