// The open files and iterators of the plain functions, and the tables of their handles.
#include <utility>

#include "zproperties_c_p.h"

namespace {

enum Tag : uint32_t { fileTag = 1, iteratorTag = 2 };

}  // namespace

constinit zhandles::HandleTable<ZPROP_handle> zhandles::openFiles(fileTag);
constinit zhandles::HandleTable<ZPROP_iter_handle> zhandles::openIterators(iteratorTag);

ZPROP_handle::ZPROP_handle(ZPROPOpenMode openMode,
                           std::shared_ptr<ZStanzaFileProperties_6_0> openStore)
    : mode(openMode), store(std::move(openStore))
{
}

ZPROP_handle::~ZPROP_handle()
{
    mode = 0;
    first = 0;
    second = 0;
}

ZPROP_stz_handle::~ZPROP_stz_handle() = default;

ZPROP_iter_handle::ZPROP_iter_handle(ZPROPIterType iterType,
                                     std::shared_ptr<ZStanzaFileProperties_6_0> openStore)
    : type(iterType), store(std::move(openStore)), creator(pthread_self())
{
}

ZPROP_iter_handle::~ZPROP_iter_handle() noexcept(false)
{
    type = 0;
    first = 0;
    second = 0;
}

ZPROP_stz_iter_handle::ZPROP_stz_iter_handle(
    std::shared_ptr<ZStanzaFileProperties_6_0> const& openStore, char const* stanza)
    : ZPROP_iter_handle(zpropOverKeys, openStore), entries(*openStore, stanza)
{
}

ZPROP_stz_iter_handle::~ZPROP_stz_iter_handle() = default;

ZPROP_stzvalue_iter_handle::ZPROP_stzvalue_iter_handle(
    std::shared_ptr<ZStanzaFileProperties_6_0> const& openStore, char const* stanza,
    char const* keyName)
    : ZPROP_iter_handle(zpropOverValues, openStore),
      values(*openStore, stanza, keyName, zPropLocalStrings, zPropIterAny),
      key(keyName)
{
}

ZPROP_stzvalue_iter_handle::~ZPROP_stzvalue_iter_handle() = default;
