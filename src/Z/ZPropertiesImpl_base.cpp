// ZPCache_6_0, a cache that holds no values.

#include <typeinfo>
#include <utility>

#include "ZBuffer.h"
#include "ZPropertiesImpl_p.h"

char const ZPCache_6_0::empty_[1] = "";

namespace {

// The path of all caches that have no companion file, which nothing changes.
ZLCString_6_0* noPath()
{
    static ZLCString_6_0* const path = new ZLCString_6_0;  // used until the process ends
    return path;
}

ZLCString_6_0* newPath(char const* path)
{
    return *path == '\0' ? noPath() : new ZLCString_6_0(path);
}

}  // namespace

ZPCache_6_0::ZPCache_6_0()
    : companionFile_(noPath()), attributes_(0), attributeArgument_(nullptr), generation_(0)
{
}

ZPCache_6_0::ZPCache_6_0(ZPCache_6_0 const& other)
    : companionFile_(newPath(other.companionFile_->getChars())),
      attributes_(other.attributes_),
      attributeArgument_(other.attributeArgument_),
      generation_(0)
{
}

ZPCache_6_0::~ZPCache_6_0()
{
    takeCompanionFile(noPath());
}

ZArrayList_6_0* ZPCache_6_0::get(char const*, char const*, get_type_e)
{
    return nullptr;
}

ZArrayList_6_0* ZPCache_6_0::get(char const*, get_type_e)
{
    return nullptr;
}

void ZPCache_6_0::add(char const*, char const*, char const*, int)
{
}

void ZPCache_6_0::add(char const*, char const*, int)
{
}

void ZPCache_6_0::set(char const*, char const*, char const*)
{
}

void ZPCache_6_0::set(char const*, char const*)
{
}

void ZPCache_6_0::setObfuscated(char const*, char const*, char const*)
{
}

void ZPCache_6_0::setObfuscated(char const*, char const*)
{
}

void ZPCache_6_0::remove(char const*, char const*)
{
}

void ZPCache_6_0::remove(char const*)
{
}

int ZPCache_6_0::countValues(char const*)
{
    return 0;
}

int ZPCache_6_0::countValues(char const*, char const*)
{
    return 0;
}

int ZPCache_6_0::keyCount(char const*) const
{
    return 0;
}

int ZPCache_6_0::contains(char const*) const
{
    return 0;
}

int ZPCache_6_0::contains(char const*, char const*) const
{
    return 0;
}

int ZPCache_6_0::isObfuscated(char const*) const
{
    return 0;
}

int ZPCache_6_0::isObfuscated(char const*, char const*) const
{
    return 0;
}

int ZPCache_6_0::count() const
{
    return 0;
}

void ZPCache_6_0::getNames(ZArrayList_6_0&) const
{
}

void ZPCache_6_0::getNames(char const*, ZArrayList_6_0&) const
{
}

ZArrayList_6_0* ZPCache_6_0::getNames(char const*) const
{
    return nullptr;
}

void ZPCache_6_0::list(FILE*) const
{
}

void ZPCache_6_0::be_read(char const*, FILE*)
{
}

void ZPCache_6_0::be_write(char const*, FILE*)
{
}

void ZPCache_6_0::be_read_obfuscated(ZBuffer_6_0&)
{
}

void ZPCache_6_0::be_write_obfuscated(ZBuffer_6_0& buffer)
{
    buffer.setLength(0);
}

void ZPCache_6_0::delLine(char const*)
{
}

void ZPCache_6_0::delLine(char const*, char const*)
{
}

void ZPCache_6_0::addLine(char const*, char const*, char const*, int)
{
}

void ZPCache_6_0::addLine(char const*, char const*, int)
{
}

void ZPCache_6_0::addFileComment(char const*)
{
}

void ZPCache_6_0::addLineComment(char const*, char const*)
{
}

void ZPCache_6_0::addLineComment(char const*, char const*, char const*)
{
}

void ZPCache_6_0::clear()
{
    takeCompanionFile(noPath());
}

void ZPCache_6_0::setAttributes(unsigned long attributes, void* argument)
{
    attributes_ = attributes;
    attributeArgument_ = argument;
}

void ZPCache_6_0::makeKey(ZLCString_6_0& out, char const* category, char const* key) const
{
    ZLCString_6_0 name("[");
    name += category;
    name += "]";
    name += key;
    out = name;
}

ZPCache_6_0* ZPCache_6_0::makeEmpty() const
{
    return nullptr;
}

int ZPCache_6_0::swapContents(ZPCache_6_0&)
{
    return 0;
}

int ZPCache_6_0::obfuscatedItemCount() const
{
    return 0;
}

int ZPCache_6_0::validCategory(char const* category) const
{
    return ZPCategoryBasedCache_6_0::validateCategory(category);
}

int ZPCache_6_0::validKey(char const* category, char const* key) const
{
    return ZPCategoryBasedCache_6_0::validateKey(category, key);
}

int ZPCache_6_0::validValue(char const* key, char const* value) const
{
    return ZPCategoryBasedCache_6_0::validateValue(key, value);
}

void ZPCache_6_0::readText(char const*, char const*, size_t)
{
}

void ZPCache_6_0::writeText(ZBuffer_6_0& buffer) const
{
    buffer.setLength(0);
}

ZPCategoryBasedCache_6_0 const* ZPCache_6_0::direct() const
{
    std::type_info const& type = typeid(*this);
    return type == typeid(ZSCFData_6_0) || type == typeid(ZPCategoryBasedCache_6_0) ||
                   ZPCategoryBasedCache_6_0::KeptLines::isDialectData(type)
               ? static_cast<ZPCategoryBasedCache_6_0 const*>(this)
               : nullptr;
}

void ZPCache_6_0::setCompanionFile(char const* path)
{
    takeCompanionFile(newPath(path == nullptr ? "" : path));
}

void ZPCache_6_0::swapCompanionFile(ZPCache_6_0& other)
{
    std::swap(companionFile_, other.companionFile_);
}

void ZPCache_6_0::takeCompanionFile(ZLCString_6_0* path)
{
    ZLCString_6_0* const old = std::exchange(companionFile_, path);
    if (old != noPath())
        delete old;
}
