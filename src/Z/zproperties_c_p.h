// zproperties_c_p: the open files and iterators of the plain functions.
#pragma once

#include <pthread.h>
#include <stdint.h>

#include <memory>
#include <string>

#include "ZStanzaFileProperties.h"
#include "handles/handle_table.h"
#include "zproperties_c.h"

constexpr uint32_t kZPropFirstMagic = 0xbeeff00d;
constexpr uint32_t kZPropSecondMagic = 0xd00ffeeb;

// An open file. The magic words are volatile, so that the compiler does not optimise away clearing
// them in the destructor.
struct ZPROP_handle {
    ZPROP_handle(ZPROPOpenMode openMode, std::shared_ptr<ZStanzaFileProperties_6_0> openStore);
    ZPROP_handle(ZPROP_handle const&) = delete;
    ZPROP_handle& operator=(ZPROP_handle const&) = delete;
    virtual ~ZPROP_handle();

    bool intact() const { return first == kZPropFirstMagic && second == kZPropSecondMagic; }

    uint32_t volatile first = kZPropFirstMagic;
    int32_t volatile mode;
    uint32_t volatile second = kZPropSecondMagic;
    std::shared_ptr<ZStanzaFileProperties_6_0> const store;
};

// A stanza of an open file. No function of the interface creates one.
struct ZPROP_stz_handle : ZPROP_handle {
    using ZPROP_handle::ZPROP_handle;
    ~ZPROP_stz_handle() override;
};

enum ZPROPIterType : int32_t { zpropOverKeys = 1, zpropOverValues = 2 };

// An open iterator. It shares the store, so that the file handle may be closed first.
struct ZPROP_iter_handle {
    ZPROP_iter_handle(ZPROPIterType iterType, std::shared_ptr<ZStanzaFileProperties_6_0> openStore);
    ZPROP_iter_handle(ZPROP_iter_handle const&) = delete;
    ZPROP_iter_handle& operator=(ZPROP_iter_handle const&) = delete;
    virtual ~ZPROP_iter_handle() noexcept(false);

    bool intact() const { return first == kZPropFirstMagic && second == kZPropSecondMagic; }

    int32_t volatile type;
    uint32_t volatile first = kZPropFirstMagic;
    uint32_t volatile second = kZPropSecondMagic;
    std::shared_ptr<ZStanzaFileProperties_6_0> const store;
    pthread_t const creator;  // the thread that holds the store's lock through the iterator
};

struct ZPROP_stz_iter_handle : ZPROP_iter_handle {
    ZPROP_stz_iter_handle(std::shared_ptr<ZStanzaFileProperties_6_0> const& openStore,
                          char const* stanza);
    ~ZPROP_stz_iter_handle() override;

    ZStanzaIterator_6_0 entries;
};

struct ZPROP_stzvalue_iter_handle : ZPROP_iter_handle {
    ZPROP_stzvalue_iter_handle(std::shared_ptr<ZStanzaFileProperties_6_0> const& openStore,
                               char const* stanza, char const* keyName);
    ~ZPROP_stzvalue_iter_handle() override;

    ZStanzaValueIterator_6_0 values;
    std::string current;  // the current value
    std::string const key;
};

namespace zhandles {

/// The process's open files and iterators.
extern HandleTable<ZPROP_handle> openFiles;
extern HandleTable<ZPROP_iter_handle> openIterators;

}  // namespace zhandles
