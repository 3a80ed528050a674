// messages: the table of all messages, with their numbers and their text.
//
// A number never changes and never gets another text: log scanners match both.
#pragma once

#include <stdint.h>

namespace zreporting {

/// The message numbers of exceptions and reports. 23 has no text.
enum Message : int {
    outOfMemory = 1,
    converterOpenFailed = 2,
    mutexInit = 3,
    mutexDestroy = 4,
    mutexLock = 5,
    mutexUnlock = 6,
    conditionInit = 7,
    conditionDestroy = 8,
    conditionWait = 9,
    conditionSignal = 10,
    invalidPlatform = 11,
    registryOpenFailed = 12,
    registryQueryFailed = 13,
    notClonable = 14,
    attrInit = 15,
    setDetachState = 16,
    threadCreate = 17,
    attrDestroy = 18,
    unknownException = 19,
    threadJoin = 20,
    conditionTimedWait = 21,
    invalidParameter = 22,
    socketStartupFailed = 24,
    hostNameFailed = 25,
    hostByNameFailed = 26,
    conditionBroadcast = 27,
    missingProperty = 28,
    keyCreate = 29,
    setSpecific = 30,
    notImplemented = 31,
    invalidState = 32,
    lockFailed = 33,
    unlockFailed = 34,
    readFailed = 35,
    lockFileWriteFailed = 36,
    lockFileCreateFailed = 37,
    lockFileCloseFailed = 38,
    invalidValue = 39,
    invalidNumValue = 40,
    invalidBoolValue = 41,
    iteratorState = 42,
    accessFailed = 43,
    invalidData = 44,
    noQVREnvironment = 45,
    mbLenFailed = 46,
    codesetFailed = 47,
    unsupported = 48,
    toUTF8Failed = 49,
    fromUTF8Failed = 50,
    libraryFailed = 51,
    symbolFailed = 52,
    unexpectedEnd = 53,
    parseFailed = 54
};

/// The size of the message table: numbers are less.
constexpr int kMessageCount = 55;

/// The largest number of inserts of a message.
constexpr int kMaxInserts = 6;

/// Returns the text of a message, with a conversion %s or %d for each insert; null if the number
/// has no text.
/// owns    static text.
char const* messageText(uint32_t number);

/// Returns the types of the conversions in the text of a message: 's' and 'd', in order; "" if the
/// number has no text.
/// owns    static text.
char const* messageInsertTypes(uint32_t number);

}  // namespace zreporting
