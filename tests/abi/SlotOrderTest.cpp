// The order of virtual functions, and the form of records, is binary interface: programs built
// against one build of this generation run with the next. Each table below is that order; it is
// only ever appended to.
#include <Z/ZArray.h>
#include <Z/ZArrayList.h>
#include <Z/ZArrayStack.h>
#include <Z/ZBuffer.h>
#include <Z/ZCondition.h>
#include <Z/ZException.h>
#include <Z/ZFileMap.h>
#include <Z/ZHashKeyMap.h>
#include <Z/ZHashMap.h>
#include <Z/ZLock.h>
#include <Z/ZMessage.h>
#include <Z/ZObserver.h>
#include <Z/ZProcessReadWriteFileLock.h>
#include <Z/ZPropertiesImpl.h>
#include <Z/ZPropertiesKVList.h>
#include <Z/ZQVRUTF8Converter.h>
#include <Z/ZSharedLibrary.h>
#include <Z/ZSleeperThread.h>
#include <Z/ZStanzaFileProperties.h>
#include <Z/ZStringIterator.h>
#include <Z/ZStringTokenizer.h>
#include <Z/ZThread.h>
#include <Z/ZThreadPool.h>
#include <Z/ZUTF8String.h>
#include <Z/zproperties_c.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

#include "Slots.h"

namespace {

// F chooses among overloads: slot<int(char const*) const>(&ZAbstractString_6_0::compare).
template <class F, class C>
int slot(F C::*function)
{
    return slotOf(function);
}

struct Row {
    char const* name;
    int slot;
};

// Expects the functions in neighbouring slots, the first one in slot `first`.
void expectOrder(char const* scope, int first, std::vector<Row> const& rows)
{
    SCOPED_TRACE(scope);
    for (std::size_t i = 0; i < rows.size(); ++i)
        EXPECT_EQ(first + static_cast<int>(i), rows[i].slot) << rows[i].name;
}

// Two entries of the destructor, then hash, compare, clone, equals.
constexpr int kBehindObject = 6;

TEST(SlotOrder, ObjectRootAndExceptions)
{
    expectOrder("ZObject", 2,
                {{"hash", slot(&ZObject_6_0::hash)},
                 {"compare", slot(&ZObject_6_0::compare)},
                 {"clone", slot(&ZObject_6_0::clone)},
                 {"equals", slot(&ZObject_6_0::equals)}});
    expectOrder("ZException", kBehindObject,
                {{"addLocation", slot(&ZException_6_0::addLocation)},
                 {"location", slot(&ZException_6_0::location)},
                 {"locationCount", slot(&ZException_6_0::locationCount)},
                 {"who", slot(&ZException_6_0::who)},
                 {"where", slot(&ZException_6_0::where)},
                 {"print", slot(&ZException_6_0::print)},
                 {"throwException", slot(&ZException_6_0::throwException)},
                 {"dumpException", slot(&ZException_6_0::dumpException)},
                 {"insertTypes", slot(&ZZException_6_0::insertTypes)}});
}

TEST(SlotOrder, MessageService)
{
    using Service = ZMessageService_6_0;
    expectOrder("ZMessageService", 0,
                {{"outputMessage", slot(&Service::outputMessage)},
                 {"outputMessageUTF8", slot(&Service::outputMessageUTF8)},
                 {"outputException", slot<void(ZException_6_0&) const>(&Service::outputException)},
                 {"outputException with inserts",
                  slot<void(ZZException_6_0 const*, va_list) const>(&Service::outputException)}});
    using Default = ZDefaultMessageService_6_0;
    expectOrder(
        "ZDefaultMessageService", kBehindObject,
        {{"outputException with inserts",
          slot<void(ZZException_6_0 const*, va_list) const>(&Default::outputException)},
         {"outputMessage", slot(&Default::outputMessage)},
         {"outputMessageUTF8", slot(&Default::outputMessageUTF8)},
         {"outputException", slot<void(ZException_6_0&) const>(&Default::outputException)}});
}

TEST(SlotOrder, Strings)
{
    using S = ZAbstractString_6_0;
    expectOrder("ZAbstractString", kBehindObject,
                {{"compare", slot<int(char const*) const>(&S::compare)},
                 {"compareignorecase", slot<int(char const*) const>(&S::compareignorecase)},
                 {"getChars", slot(&S::getChars)},
                 {"setChars", slot(&S::setChars)},
                 {"getLength", slot(&S::getLength)},
                 {"getCharCount", slot(&S::getCharCount)},
                 {"contains a character", slot<bool(int) const>(&S::contains)},
                 {"contains a text", slot<bool(char const*) const>(&S::contains)},
                 {"indexOf a character", slot<int(int, unsigned) const>(&S::indexOf)},
                 {"indexOf a text", slot<int(char const*, unsigned) const>(&S::indexOf)},
                 {"lastIndexOf a character", slot<int(int) const>(&S::lastIndexOf)},
                 {"lastIndexOf a text", slot<int(char const*) const>(&S::lastIndexOf)},
                 {"beginsWith", slot<bool(char const*) const>(&S::beginsWith)},
                 {"endsWith", slot<bool(char const*) const>(&S::endsWith)},
                 {"equals", slot<bool(char const*) const>(&S::equals)},
                 {"isEmpty", slot(&S::isEmpty)},
                 {"operator char const*", slot(&S::operator char const*)},
                 {"data", slot(&S::data)},
                 {"getCodesetHandle", slot(&S::getCodesetHandle)}});

    using M = ZAbstractMutableString_6_0;
    int const behindString = slot(&S::getCodesetHandle) + 1;
    expectOrder("ZAbstractMutableString", behindString,
                {{"replaceAll by a character", slot<M&(char const*, char)>(&M::replaceAll)},
                 {"replace a character", slot<M&(char, char)>(&M::replace)},
                 {"replace a text", slot<M&(char const*, char const*)>(&M::replace)},
                 {"replaceAll", slot<M&(char const*, char const*)>(&M::replaceAll)},
                 {"replaceOther", slot(&M::replaceOther)},
                 {"stripLeading", slot(&M::stripLeading)},
                 {"stripTrailing", slot(&M::stripTrailing)},
                 {"convertFromCodeSet", slot(&M::convertFromCodeSet)}});
    // The concrete classes fill these slots and add none.
    using L = ZLCString_6_0;
    EXPECT_EQ(behindString + 3, slot<L&(char const*, char const*)>(&L::replaceAll));
    EXPECT_EQ(behindString + 4, slot(&L::replaceOther));
    using U = ZUTF8String_6_0;
    EXPECT_EQ(behindString + 3, slot<U&(char const*, char const*)>(&U::replaceAll));
    EXPECT_EQ(behindString + 4, slot(&U::replaceOther));
}

TEST(SlotOrder, TextIteratorsAndConverter)
{
    using Tokenizer = ZStringTokenizer_6_0;
    expectOrder("ZStringIterator", kBehindObject,
                {{"findNext", slot(&ZStringIterator_6_0::findNext)},
                 {"hasMore", slot(&ZStringIterator_6_0::hasMore)},
                 {"getNext", slot(&ZStringIterator_6_0::getNext)},
                 {"reset", slot(&ZStringIterator_6_0::reset)}});
    using Delimiters = ZAbstractString_6_0 const&;
    using Token = ZAbstractMutableString_6_0*;
    expectOrder("ZStringTokenizer", kBehindObject + 1,
                {{"hasMore with delimiters", slot<bool(Delimiters)>(&Tokenizer::hasMore)},
                 {"hasMore", slot<bool()>(&Tokenizer::hasMore)},
                 {"getNext with delimiters", slot<Token(Delimiters)>(&Tokenizer::getNext)},
                 {"getNext", slot<Token()>(&Tokenizer::getNext)},
                 {"reset", slot(&Tokenizer::reset)},
                 {"list", slot(&Tokenizer::list)}});
    using Converter = ZQVRUTF8Converter_6_0;
    expectOrder("ZQVRUTF8Converter", kBehindObject,
                {{"getLocalCodeSet", slot(&Converter::getLocalCodeSet)},
                 {"convertToLocal", slot(&Converter::convertToLocal)},
                 {"convertToUTF8", slot(&Converter::convertToUTF8)}});
}

TEST(SlotOrder, ArraysListsAndStacks)
{
    using Object = ZObject_6_0 const*;
    using I = ZArrayInterface_6_0;
    expectOrder("ZArrayInterface", 0,
                {{"size", slot(&I::size)},
                 {"contains", slot(&I::contains)},
                 {"remove", slot(&I::remove)},
                 {"removeAll", slot(&I::removeAll)},
                 {"get", slot(&I::get)},
                 {"set", slot(&I::set)},
                 {"indexOf", slot(&I::indexOf)},
                 {"lastIndexOf", slot(&I::lastIndexOf)},
                 {"swap", slot(&I::swap)}});
    using A = ZArray_6_0;
    expectOrder("ZArray", kBehindObject,
                {{"size", slot(&A::size)},
                 {"ownsMembers", slot(&A::ownsMembers)},
                 {"contains", slot(&A::contains)},
                 {"remove", slot(&A::remove)},
                 {"removeAll", slot(&A::removeAll)},
                 {"get", slot(&A::get)},
                 {"set", slot(&A::set)},
                 {"setNoCopy", slot(&A::setNoCopy)},
                 {"indexOf", slot(&A::indexOf)},
                 {"lastIndexOf", slot(&A::lastIndexOf)},
                 {"swap", slot(&A::swap)}});
    using L = ZList_6_0;
    expectOrder("ZList", 0,
                {{"size", slot(&L::size)},
                 {"isEmpty", slot(&L::isEmpty)},
                 {"contains", slot(&L::contains)},
                 {"add", slot<void(Object)>(&L::add)},
                 {"add at", slot<void(unsigned, Object)>(&L::add)},
                 {"addList", slot(&L::addList)},
                 {"remove", slot<void(Object)>(&L::remove)},
                 {"remove at", slot<void(unsigned)>(&L::remove)},
                 {"remove by iterator", slot<void(ZListIterator_6_0&)>(&L::remove)},
                 {"removeAll", slot(&L::removeAll)},
                 {"get", slot(&L::get)},
                 {"set", slot(&L::set)},
                 {"indexOf", slot<int(Object) const>(&L::indexOf)},
                 {"sort", slot(&L::sort)},
                 {"lastIndexOf", slot(&L::lastIndexOf)},
                 {"subList", slot(&L::subList)},
                 {"swap", slot(&L::swap)},
                 {"shuffle", slot(&L::shuffle)},
                 {"backUp", slot(&L::backUp)},
                 {"indexOf by iterator", slot<int(ZListIterator_6_0&)>(&L::indexOf)}});
    using G = ZArrayList_6_0;
    expectOrder("ZArrayList", kBehindObject,
                {{"isEmpty", slot(&G::isEmpty)},
                 {"sort", slot(&G::sort)},
                 {"size", slot(&G::size)},
                 {"ownsMembers", slot(&G::ownsMembers)},
                 {"contains", slot(&G::contains)},
                 {"add", slot<void(Object)>(&G::add)},
                 {"add at", slot<void(unsigned, Object)>(&G::add)},
                 {"addList", slot(&G::addList)},
                 {"addNoCopy", slot<void(Object)>(&G::addNoCopy)},
                 {"addNoCopy at", slot<void(unsigned, Object)>(&G::addNoCopy)},
                 {"remove", slot<void(Object)>(&G::remove)},
                 {"remove at", slot<void(unsigned)>(&G::remove)},
                 {"remove by iterator", slot<void(ZListIterator_6_0&)>(&G::remove)},
                 {"removeAll", slot(&G::removeAll)},
                 {"get", slot(&G::get)},
                 {"set", slot(&G::set)},
                 {"indexOf", slot<int(Object) const>(&G::indexOf)},
                 {"lastIndexOf", slot(&G::lastIndexOf)},
                 {"subList", slot(&G::subList)},
                 {"swap", slot(&G::swap)},
                 {"capacity", slot(&G::capacity)},
                 {"shuffle", slot(&G::shuffle)},
                 {"indexOf by iterator", slot<int(ZListIterator_6_0&)>(&G::indexOf)}});
    int const behindList = slot<int(ZListIterator_6_0&)>(&G::indexOf) + 1;
    expectOrder("ZArrayStack", behindList,
                {{"push", slot(&ZArrayStack_6_0::push)}, {"pop", slot(&ZArrayStack_6_0::pop)}});
    expectOrder("ZStack", 0,
                {{"push", slot(&ZStack_6_0::push)},
                 {"pop", slot(&ZStack_6_0::pop)},
                 {"popall", slot(&ZStack_6_0::popall)}});
    expectOrder(
        "ZIterator", 0,
        {{"hasMore", slot(&ZIterator_6_0::hasMore)}, {"getNext", slot(&ZIterator_6_0::getNext)}});
    expectOrder("ZListIterator", kBehindObject,
                {{"findNext", slot(&ZListIterator_6_0::findNext)},
                 {"hasMore", slot(&ZListIterator_6_0::hasMore)},
                 {"getNext", slot(&ZListIterator_6_0::getNext)},
                 {"reset", slot(&ZListIterator_6_0::reset)},
                 {"backUp", slot(&ZListIterator_6_0::backUp)},
                 {"indexOf", slot(&ZListIterator_6_0::indexOf)}});
    EXPECT_EQ(0, slot(&ZSortCompare_6_0::sortCompare));
}

TEST(SlotOrder, Maps)
{
    using M = ZMap_6_0;
    expectOrder("ZMap", 0,
                {{"size", slot(&M::size)},
                 {"isEmpty", slot(&M::isEmpty)},
                 {"contains", slot(&M::contains)},
                 {"getEntry", slot(&M::getEntry)},
                 {"putEntry", slot(&M::putEntry)},
                 {"putAll", slot(&M::putAll)},
                 {"removeEntry", slot(&M::removeEntry)},
                 {"removeAll", slot(&M::removeAll)},
                 {"list", slot(&M::list)}});
    using H = ZHashMap_6_0;
    expectOrder("ZHashMap", kBehindObject,
                {{"isEmpty", slot(&H::isEmpty)},
                 {"size", slot(&H::size)},
                 {"contains", slot(&H::contains)},
                 {"getEntry", slot(&H::getEntry)},
                 {"putEntry", slot(&H::putEntry)},
                 {"putAll", slot(&H::putAll)},
                 {"removeEntry", slot(&H::removeEntry)},
                 {"removeAll", slot(&H::removeAll)},
                 {"list", slot(&H::list)}});
    using A = ZArrayMap_6_0;
    int const behindList = slot<int(ZListIterator_6_0&)>(&ZArrayList_6_0::indexOf) + 1;
    expectOrder("ZArrayMap", behindList,
                {{"getEntry", slot(&A::getEntry)},
                 {"putEntry", slot(&A::putEntry)},
                 {"putAll", slot(&A::putAll)},
                 {"removeEntry", slot(&A::removeEntry)},
                 {"list", slot(&A::list)},
                 {"getIndex", slot(&A::getIndex)}});
    using K = ZKeyMap_6_0;
    expectOrder("ZKeyMap", 0,
                {{"size", slot(&K::size)},
                 {"isEmpty", slot(&K::isEmpty)},
                 {"contains", slot(&K::contains)},
                 {"getEntry", slot(&K::getEntry)},
                 {"putEntry", slot(&K::putEntry)},
                 {"putAll", slot(&K::putAll)},
                 {"removeEntry", slot(&K::removeEntry)},
                 {"removeAll", slot(&K::removeAll)},
                 {"listKeys", slot(&K::listKeys)},
                 {"listObjects", slot(&K::listObjects)}});
    using N = ZHashKeyMap_6_0;
    expectOrder("ZHashKeyMap", kBehindObject,
                {{"isEmpty", slot(&N::isEmpty)},
                 {"size", slot(&N::size)},
                 {"contains", slot(&N::contains)},
                 {"getEntry", slot(&N::getEntry)},
                 {"putEntry", slot(&N::putEntry)},
                 {"putAll", slot(&N::putAll)},
                 {"removeEntry", slot(&N::removeEntry)},
                 {"removeAll", slot(&N::removeAll)},
                 {"listKeys", slot(&N::listKeys)},
                 {"listObjects", slot(&N::listObjects)}});
    expectOrder("ZMapIterator", kBehindObject,
                {{"findNext", slot(&ZMapIterator_6_0::findNext)},
                 {"hasMore", slot(&ZMapIterator_6_0::hasMore)},
                 {"getNext", slot(&ZMapIterator_6_0::getNext)},
                 {"reset", slot(&ZMapIterator_6_0::reset)}});
}

TEST(SlotOrder, Buffers)
{
    using I = ZBufferInterface_6_0;
    expectOrder("ZBufferInterface", 0,
                {{"setLength", slot(&I::setLength)},
                 {"setBuffer", slot(&I::setBuffer)},
                 {"getLength", slot(&I::getLength)},
                 {"getBuffer", slot(&I::getBuffer)},
                 {"takeBuffer", slot(&I::takeBuffer)}});
    using V = ZConstBuffer_6_0;
    expectOrder("ZConstBuffer", kBehindObject,
                {{"setLength", slot(&V::setLength)},
                 {"setBuffer", slot(&V::setBuffer)},
                 {"getLength", slot(&V::getLength)},
                 {"getBuffer", slot(&V::getBuffer)},
                 {"takeBuffer", slot(&V::takeBuffer)}});
    using B = ZBuffer_6_0;
    expectOrder("ZBuffer", kBehindObject,
                {{"setLength", slot(&B::setLength)},
                 {"setBuffer", slot<void(unsigned long, void*)>(&B::setBuffer)},
                 {"setBuffer of a text", slot<void(char*)>(&B::setBuffer)},
                 {"setBufferNoCopy", slot(&B::setBufferNoCopy)},
                 {"getLength", slot(&B::getLength)},
                 {"getBuffer", slot(&B::getBuffer)},
                 {"takeBuffer", slot(&B::takeBuffer)}});
}

TEST(SlotOrder, LocksConditionsAndObservers)
{
    expectOrder("ZLock", 0,
                {{"lock", slot(&ZLock_6_0::lock)}, {"unlock", slot(&ZLock_6_0::unlock)}});
    using C = ZConditionInterface_6_0;
    expectOrder("ZConditionInterface", 0,
                {{"wait", slot<void()>(&C::wait)},
                 {"wait for seconds", slot<void(long, int&)>(&C::wait)},
                 {"wait until", slot<void(timespec&, int&)>(&C::wait)},
                 {"signal", slot(&C::signal)},
                 {"broadcast", slot(&C::broadcast)},
                 {"waitTimedOut", slot(&C::waitTimedOut)}});
    using N = ZCondition_6_0;
    expectOrder("ZCondition", kBehindObject,
                {{"wait", slot<void()>(&N::wait)},
                 {"wait for seconds", slot<void(long, int&)>(&N::wait)},
                 {"wait until", slot<void(timespec&, int&)>(&N::wait)},
                 {"signal", slot(&N::signal)},
                 {"broadcast", slot(&N::broadcast)},
                 {"lock", slot(&N::lock)},
                 {"unlock", slot(&N::unlock)},
                 {"getResource", slot(&N::getResource)},
                 {"waitTimedOut", slot(&N::waitTimedOut)},
                 {"validateLock", slot(&N::validateLock)}});
    using B = ZBooleanCondition_6_0;
    expectOrder("ZBooleanCondition", slot(&N::validateLock) + 1,
                {{"initCondition", slot(&B::initCondition)},
                 {"testCondition", slot(&B::testCondition)},
                 {"setCondition", slot(&B::setCondition)}});
    using O = ZObservableInterface_6_0;
    expectOrder("ZObservableInterface", 0,
                {{"addObserver", slot(&O::addObserver)},
                 {"deleteObserver", slot(&O::deleteObserver)},
                 {"deleteObservers", slot(&O::deleteObservers)},
                 {"countObservers", slot(&O::countObservers)},
                 {"notifyObservers", slot(&O::notifyObservers)}});
    EXPECT_EQ(4, slot(&ZAbstractObservable_6_0::notifyObservers));
    EXPECT_EQ(0, slot(&ZObserverInterface_6_0::update));
    expectOrder("ZSequenceUpdate", kBehindObject,
                {{"getSequence", slot(&ZSequenceUpdate_6_0::getSequence)},
                 {"getLastSequence", slot(&ZSequenceUpdate_6_0::getLastSequence)}});
    expectOrder("ZAbstractFileMap", 0,
                {{"mapfile", slot(&ZAbstractFileMap_6_0::mapfile)},
                 {"unmapfile", slot(&ZAbstractFileMap_6_0::unmapfile)}});
}

// The names of a value: category and key.
using Text = char const*;

TEST(SlotOrder, PropertiesInterfaces)
{
    using R = ZPropertiesInterface_6_0;
    expectOrder("ZPropertiesInterface", 0,
                {{"exists a key", slot<int(Text, Text) const>(&R::exists)},
                 {"exists a category", slot<int(Text) const>(&R::exists)},
                 {"getValue", slot(&R::getValue)},
                 {"getIntegerValue", slot(&R::getIntegerValue)},
                 {"getBooleanValue", slot(&R::getBooleanValue)},
                 {"count", slot<int() const>(&R::count)},
                 {"count of a category", slot<int(Text) const>(&R::count)},
                 {"numValues of a key", slot<int(Text, Text) const>(&R::numValues)},
                 {"numValues of a category", slot<int(Text) const>(&R::numValues)},
                 {"getValues", slot(&R::getValues)},
                 {"load", slot(&R::load)},
                 {"reload", slot(&R::reload)},
                 {"store", slot(&R::store)},
                 {"list", slot(&R::list)}});
    using W = ZPropertiesMutableInterface_6_0;
    expectOrder("ZPropertiesMutableInterface", 0,
                {{"setValue", slot(&W::setValue)},
                 {"setIntegerValue", slot(&W::setIntegerValue)},
                 {"setBooleanValue", slot(&W::setBooleanValue)},
                 {"deleteKey", slot(&W::deleteKey)},
                 {"addFileComment", slot(&W::addFileComment)},
                 {"addEntryComment", slot(&W::addEntryComment)}});
    EXPECT_EQ(0, slot(&ZPropertiesFactoryInterface_6_0::makePropertiesInstance));
    using I = ZPropertiesIterator_6_0;
    expectOrder("ZPropertiesIterator", 0,
                {{"hasMore", slot(&I::hasMore)},
                 {"nextEntry", slot(&I::nextEntry)},
                 {"entryName", slot(&I::entryName)},
                 {"entryValue", slot(&I::entryValue)},
                 {"keyCount", slot(&I::keyCount)},
                 {"valueCount", slot(&I::valueCount)}});
    // Behind the two entries of the destructor.
    EXPECT_EQ(8, slot(&I::getValues));
    using V = ZAbstractPropertyValuesIterator_6_0;
    expectOrder("ZAbstractPropertyValuesIterator", 0,
                {{"hasMore", slot(&V::hasMore)},
                 {"nextValue", slot<ZAbstractString_6_0 const&()>(&V::nextValue)},
                 {"nextValue into", slot<void(char const*&)>(&V::nextValue)},
                 {"changeValue", slot(&V::changeValue)},
                 {"addValue", slot(&V::addValue)},
                 {"removeValue", slot(&V::removeValue)},
                 {"valueCount", slot(&V::valueCount)}});
}

TEST(SlotOrder, Stores)
{
    using P = ZProperties_6_0;
    expectOrder(
        "ZProperties", kBehindObject,
        {{"exists a key", slot<int(Text, Text) const>(&P::exists)},
         {"exists a category", slot<int(Text) const>(&P::exists)},
         {"isObfuscated a key", slot<int(Text, Text) const>(&P::isObfuscated)},
         {"isObfuscated a category", slot<int(Text) const>(&P::isObfuscated)},
         {"getValue", slot(&P::getValue)},
         {"getIntegerValue", slot(&P::getIntegerValue)},
         {"getBooleanValue", slot(&P::getBooleanValue)},
         {"getValues", slot(&P::getValues)},
         {"numValues of a category", slot<int(Text) const>(&P::numValues)},
         {"numValues of a key", slot<int(Text, Text) const>(&P::numValues)},
         {"count", slot<int() const>(&P::count)},
         {"count of a category", slot<int(Text) const>(&P::count)},
         {"load", slot(&P::load)},
         {"reload", slot(&P::reload)},
         {"store", slot(&P::store)},
         {"list", slot(&P::list)},
         {"setValue", slot<void(Text, Text, Text)>(&P::setValue)},
         {"setValue with a kind", slot<void(Text, Text, Text, int)>(&P::setValue)},
         {"setValue local", slot<void(Text, Text, ZLCString_6_0 const&, int)>(&P::setValue)},
         {"setValue UTF-8", slot<void(Text, Text, ZUTF8String_6_0 const&, int)>(&P::setValue)},
         {"setValue local view",
          slot<void(Text, Text, ZLCConstString_6_0 const&, int)>(&P::setValue)},
         {"setValue UTF-8 view",
          slot<void(Text, Text, ZUTF8ConstString_6_0 const&, int)>(&P::setValue)},
         {"setIntegerValue", slot(&P::setIntegerValue)},
         {"setBooleanValue", slot(&P::setBooleanValue)},
         {"deleteKey", slot(&P::deleteKey)},
         {"addFileComment", slot(&P::addFileComment)},
         {"addEntryComment", slot(&P::addEntryComment)},
         {"postLoad", slot(&P::postLoad)},
         {"checkComment", slot(&P::checkComment)},
         {"setAttributes", slot(&P::setAttributes)},
         {"checkAccess", slot(&P::checkAccess)}});

    using S = ZStanzaFileProperties_6_0;
    EXPECT_EQ(slot(&P::addEntryComment), slot(&S::addEntryComment));
    EXPECT_EQ(slot(&P::checkComment), slot(&S::checkComment));
    expectOrder(
        "ZStanzaFileProperties", slot(&P::checkAccess) + 1,
        {{"addValue", slot<void(Text, Text, Text, int)>(&S::addValue)},
         {"addValue local", slot<void(Text, Text, ZLCString_6_0 const&, int)>(&S::addValue)},
         {"addValue UTF-8", slot<void(Text, Text, ZUTF8String_6_0 const&, int)>(&S::addValue)},
         {"addValue local view",
          slot<void(Text, Text, ZLCConstString_6_0 const&, int)>(&S::addValue)},
         {"addValue UTF-8 view",
          slot<void(Text, Text, ZUTF8ConstString_6_0 const&, int)>(&S::addValue)},
         {"addValues", slot(&S::addValues)},
         {"getStanza", slot(&S::getStanza)}});
    expectOrder("ZPropertiesKVList", kBehindObject,
                {{"addItem", slot(&ZPropertiesKVList_6_0::addItem)},
                 {"getItemCount", slot(&ZPropertiesKVList_6_0::getItemCount)},
                 {"getItemKey", slot(&ZPropertiesKVList_6_0::getItemKey)},
                 {"getItemValue", slot(&ZPropertiesKVList_6_0::getItemValue)},
                 {"clear", slot(&ZPropertiesKVList_6_0::clear)}});
}

TEST(SlotOrder, Threads)
{
    using T = ZThread_6_0;
    expectOrder("ZThread", kBehindObject,
                {{"start", slot(&T::start)},
                 {"waitForExit", slot(&T::waitForExit)},
                 {"run", slot(&T::run)},
                 {"exit", slot(&T::exit)}});
    using S = ZSleeperThread_6_0;
    expectOrder("ZSleeperThread", slot(&T::exit) + 1, {{"doWork", slot(&S::doWork)}});
    expectOrder("ZThreadPool", kBehindObject,
                {{"createThread", slot(&ZThreadPool_6_0::createThread)}});
}

TEST(SlotOrder, SharedLibrary)
{
    using A = ZAbstractSharedLibrary_6_0;
    // Two entries of the destructor; the root's functions follow in the derived class.
    expectOrder("ZAbstractSharedLibrary", 2,
                {{"getLibraryName", slot(&A::getLibraryName)},
                 {"getFlags", slot(&A::getFlags)},
                 {"setFlags", slot(&A::setFlags)},
                 {"getLastErrorMessage", slot(&A::getLastErrorMessage)},
                 {"getLastErrorNumber", slot(&A::getLastErrorNumber)},
                 {"getLocalScope", slot(&A::getLocalScope)},
                 {"setLocalScope", slot(&A::setLocalScope)},
                 {"getLazyResolution", slot(&A::getLazyResolution)},
                 {"setLazyResolution", slot(&A::setLazyResolution)},
                 {"loadLibrary", slot(&A::loadLibrary)},
                 {"unloadLibrary", slot(&A::unloadLibrary)},
                 {"resolveSymbol", slot(&A::resolveSymbol)},
                 {"setLastErrorMessage", slot(&A::setLastErrorMessage)},
                 {"setLastErrorNumber", slot(&A::setLastErrorNumber)}});
    using L = ZSharedLibrary_6_0;
    expectOrder("ZSharedLibrary", slot(&A::setLastErrorNumber) + 1,
                {{"compare", slot(&L::compare)},
                 {"hash", slot(&L::hash)},
                 {"clone", slot(&L::clone)},
                 {"getHandle", slot(&L::getHandle)},
                 {"initialize", slot(&L::initialize)}});
}

TEST(SlotOrder, ReadWriteLocks)
{
    using A = ZAbstractReadWriteLock_6_0;
    using State = A::zlockstate;
    std::vector<Row> const base = {{"lock", slot<void()>(&A::lock)},
                                   {"lock by state", slot<void(State)>(&A::lock)},
                                   {"getLockStateName", slot(&A::getLockStateName)},
                                   {"isCurrent", slot(&A::isCurrent)},
                                   {"unlock", slot<void()>(&A::unlock)},
                                   {"unlock with update", slot<void(int)>(&A::unlock)},
                                   {"haveLock", slot(&A::haveLock)},
                                   {"ownWriteLock", slot(&A::ownWriteLock)},
                                   {"getUpdate", slot(&A::getUpdate)},
                                   {"setUpdate", slot<void(int)>(&A::setUpdate)}};
    expectOrder("ZAbstractReadWriteLock", kBehindObject, base);
    int const behindBase = kBehindObject + static_cast<int>(base.size());

    using L = ZReadWriteLock_6_0;
    expectOrder("ZReadWriteLock", behindBase,
                {{"readLock", slot(&L::readLock)},
                 {"writeLock", slot(&L::writeLock)},
                 {"readWithIntentToWriteLock", slot(&L::readWithIntentToWriteLock)},
                 {"promoteReadToWriteLock", slot(&L::promoteReadToWriteLock)},
                 {"getReaderCount", slot(&L::getReaderCount)}});

    using P = ZAbstractProcessReadWriteLock_6_0;
    std::vector<Row> const process = {
        {"readLock", slot(&P::readLock)},
        {"writeLock", slot(&P::writeLock)},
        {"readWithIntentToWriteLock", slot(&P::readWithIntentToWriteLock)},
        {"promoteReadToWriteLock", slot(&P::promoteReadToWriteLock)},
        {"getLockState", slot(&P::getLockState)},
        {"getLockName", slot(&P::getLockName)},
        {"setLockName", slot(&P::setLockName)},
        {"getReaderCount", slot(&P::getReaderCount)},
        {"getSequence", slot(&P::getSequence)},
        {"incSequence", slot(&P::incSequence)},
        {"getLastSequence", slot(&P::getLastSequence)},
        {"setLastSequence to", slot<void(unsigned long)>(&P::setLastSequence)},
        {"setLastSequence", slot<void()>(&P::setLastSequence)},
        {"sync", slot<void(int)>(&P::sync)}};
    expectOrder("ZAbstractProcessReadWriteLock", behindBase, process);

    using F = ZAbstractProcessReadWriteFileLock_6_0;
    std::vector<Row> const file = {{"getLockDirName", slot(&F::getLockDirName)},
                                   {"setLockDirName", slot(&F::setLockDirName)},
                                   {"getLockFileName", slot(&F::getLockFileName)},
                                   {"lockFile", slot(&F::lockFile)},
                                   {"unlockFile", slot(&F::unlockFile)},
                                   {"dolock", slot(&F::dolock)},
                                   {"setLockFileName", slot(&F::setLockFileName)},
                                   {"lockFileRange", slot(&F::lockFileRange)},
                                   {"unlockFileRange", slot(&F::unlockFileRange)},
                                   {"readSequenceNumber", slot(&F::readSequenceNumber)},
                                   {"writeSequenceNumber", slot(&F::writeSequenceNumber)},
                                   {"writePid", slot(&F::writePid)},
                                   {"writeBytes", slot(&F::writeBytes)},
                                   {"readBytes", slot(&F::readBytes)}};
    int const behindProcess = behindBase + static_cast<int>(process.size());
    expectOrder("ZAbstractProcessReadWriteFileLock", behindProcess, file);

    using U = ZUnixProcessReadWriteFileLock_6_0;
    expectOrder(
        "ZUnixProcessReadWriteFileLock", behindProcess + static_cast<int>(file.size()),
        {{"createLockFile", slot(&U::createLockFile)}, {"closeLockFile", slot(&U::closeLockFile)}});
}

// What a class is asked for through an interface stands in the interface's own table.
TEST(SlotOrder, Interfaces)
{
    using L = ZLockInterface_6_0;
    expectOrder("ZLockInterface", 0, {{"lock", slot(&L::lock)}, {"unlock", slot(&L::unlock)}});
    using R = ZReadWriteLockInterface_6_0;
    expectOrder("ZReadWriteLockInterface", 0,
                {{"lock", slot<void()>(&R::lock)},
                 {"unlock", slot(&R::unlock)},
                 {"lock by state", slot<void(R::zlockstate)>(&R::lock)},
                 {"readLock", slot(&R::readLock)},
                 {"writeLock", slot(&R::writeLock)},
                 {"readWithIntentToWriteLock", slot(&R::readWithIntentToWriteLock)},
                 {"promoteReadToWriteLock", slot(&R::promoteReadToWriteLock)}});
    using I = ZPropertiesIteratorInterface_6_0;
    expectOrder("ZPropertiesIteratorInterface", 0,
                {{"hasMore", slot(&I::hasMore)},
                 {"nextEntry", slot(&I::nextEntry)},
                 {"entryName", slot(&I::entryName)},
                 {"entryValue", slot(&I::entryValue)},
                 {"keyCount", slot(&I::keyCount)},
                 {"valueCount", slot(&I::valueCount)}});
    using V = ZPropertyValuesIteratorInterface_6_0;
    expectOrder("ZPropertyValuesIteratorInterface", 0,
                {{"hasMore", slot(&V::hasMore)},
                 {"nextValue", slot<ZAbstractString_6_0 const&()>(&V::nextValue)},
                 {"nextValue into", slot<void(char const*&)>(&V::nextValue)},
                 {"changeValue", slot(&V::changeValue)},
                 {"addValue", slot(&V::addValue)},
                 {"removeValue", slot(&V::removeValue)},
                 {"valueCount", slot(&V::valueCount)}});
    using U = ZUTF8ConverterInterface_6_0;
    expectOrder("ZUTF8ConverterInterface", 0,
                {{"getLocalCodeSet", slot(&U::getLocalCodeSet)},
                 {"convertToLocal", slot(&U::convertToLocal)},
                 {"convertToUTF8", slot(&U::convertToUTF8)}});
    EXPECT_EQ(kBehindObject, slot(&ZAbstractIterator_6_0::findNext));
}

// C programs put these records on their stack and into arrays.
TEST(Layout, RecordsOfThePlainFunctions)
{
    EXPECT_EQ(0u, offsetof(ZPROPValue, type));
    EXPECT_EQ(8u, offsetof(ZPROPValue, stanza));
    EXPECT_EQ(16u, offsetof(ZPROPValue, key));
    EXPECT_EQ(24u, offsetof(ZPROPValue, flag));
    EXPECT_EQ(32u, offsetof(ZPROPValue, result));
    EXPECT_EQ(40u, sizeof(ZPROPValue));
    EXPECT_EQ(0u, offsetof(ZPROPError, size));
    EXPECT_EQ(4u, offsetof(ZPROPError, code));
    EXPECT_EQ(8u, offsetof(ZPROPError, messageNumber));
    EXPECT_EQ(12u, offsetof(ZPROPError, errorNumber));
    EXPECT_EQ(16u, offsetof(ZPROPError, line));
    EXPECT_EQ(24u, offsetof(ZPROPError, column));
    EXPECT_EQ(32u, offsetof(ZPROPError, file));
    EXPECT_EQ(40u, offsetof(ZPROPError, stanza));
    EXPECT_EQ(48u, offsetof(ZPROPError, key));
    EXPECT_EQ(56u, offsetof(ZPROPError, text));
    EXPECT_EQ(64u, sizeof(ZPROPError));
    EXPECT_EQ(0u, offsetof(ZPROPProblem, size));
    EXPECT_EQ(4u, offsetof(ZPROPProblem, kind));
    EXPECT_EQ(8u, offsetof(ZPROPProblem, cause));
    EXPECT_EQ(12u, offsetof(ZPROPProblem, messageNumber));
    EXPECT_EQ(16u, offsetof(ZPROPProblem, line));
    EXPECT_EQ(24u, offsetof(ZPROPProblem, column));
    EXPECT_EQ(32u, offsetof(ZPROPProblem, text));
    EXPECT_EQ(40u, sizeof(ZPROPProblem));
}

// Programs construct this class and derive from it: an added field must not change its size.
TEST(Layout, TheColumnOfInvalidDataIsWherePaddingWas)
{
    struct WithoutColumn : ZPropertiesException_6_0 {
        Text baddata;
        int32_t badline;
    };
    EXPECT_EQ(sizeof(WithoutColumn), sizeof(ZPropertiesInvalidDataException_6_0));
}

TEST(SlotOrder, Caches)
{
    using C = ZPCache_6_0;
    using Type = ZPCache_6_0::get_type_e;
    expectOrder("ZPCache", 2,
                {{"clone", slot(&C::clone)},
                 {"get of a key", slot<ZArrayList_6_0*(Text, Text, Type)>(&C::get)},
                 {"get of a category", slot<ZArrayList_6_0*(Text, Type)>(&C::get)},
                 {"add a value", slot<void(Text, Text, Text, int)>(&C::add)},
                 {"add a key", slot<void(Text, Text, int)>(&C::add)},
                 {"set a value", slot<void(Text, Text, Text)>(&C::set)},
                 {"set a key", slot<void(Text, Text)>(&C::set)},
                 {"setObfuscated a value", slot<void(Text, Text, Text)>(&C::setObfuscated)},
                 {"setObfuscated a key", slot<void(Text, Text)>(&C::setObfuscated)},
                 {"remove a key", slot<void(Text, Text)>(&C::remove)},
                 {"remove a category", slot<void(Text)>(&C::remove)},
                 {"countValues of a category", slot<int(Text)>(&C::countValues)},
                 {"countValues of a key", slot<int(Text, Text)>(&C::countValues)},
                 {"keyCount", slot(&C::keyCount)},
                 {"contains a category", slot<int(Text) const>(&C::contains)},
                 {"contains a key", slot<int(Text, Text) const>(&C::contains)},
                 {"isObfuscated a category", slot<int(Text) const>(&C::isObfuscated)},
                 {"isObfuscated a key", slot<int(Text, Text) const>(&C::isObfuscated)},
                 {"count", slot(&C::count)},
                 {"getNames", slot<void(ZArrayList_6_0&) const>(&C::getNames)},
                 {"getNames of a category", slot<void(Text, ZArrayList_6_0&) const>(&C::getNames)},
                 {"getNames made new", slot<ZArrayList_6_0*(Text) const>(&C::getNames)},
                 {"list", slot(&C::list)},
                 {"be_read", slot(&C::be_read)},
                 {"be_write", slot(&C::be_write)},
                 {"be_read_obfuscated", slot(&C::be_read_obfuscated)},
                 {"be_write_obfuscated", slot(&C::be_write_obfuscated)},
                 {"delLine of a category", slot<void(Text)>(&C::delLine)},
                 {"delLine of a key", slot<void(Text, Text)>(&C::delLine)},
                 {"addLine with a value", slot<void(Text, Text, Text, int)>(&C::addLine)},
                 {"addLine of a key", slot<void(Text, Text, int)>(&C::addLine)},
                 {"addFileComment", slot(&C::addFileComment)},
                 {"addLineComment of a category", slot<void(Text, Text)>(&C::addLineComment)},
                 {"addLineComment of a key", slot<void(Text, Text, Text)>(&C::addLineComment)},
                 {"clear", slot(&C::clear)},
                 {"setAttributes", slot(&C::setAttributes)},
                 {"makeKey", slot(&C::makeKey)},
                 {"makeEmpty", slot(&C::makeEmpty)},
                 {"swapContents", slot(&C::swapContents)},
                 {"obfuscatedItemCount", slot(&C::obfuscatedItemCount)},
                 {"validCategory", slot(&C::validCategory)},
                 {"validKey", slot(&C::validKey)},
                 {"validValue", slot(&C::validValue)},
                 {"readText", slot(&C::readText)},
                 {"writeText", slot(&C::writeText)}});
    expectOrder("ZPKVList", slot(&ZHashKeyMap_6_0::listObjects) + 1,
                {{"getKeys", slot(&ZPKVList_6_0::getKeys)}});
}

}  // namespace
