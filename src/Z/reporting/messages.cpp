#include "messages.h"

#include <array>

namespace zreporting {

namespace {

struct Row {
    Message number;
    char const* text;
};

// KEPT: every byte, with double spaces, missing full stops and "encounted". A log scanner that
// matches a whole line would miss the message after a correction of its text.
// Test: ZMessage.KeepsEveryTextToTheByte
constexpr Row kRows[] = {
    {outOfMemory, "Memory allocation failure."},
    {converterOpenFailed, "iconv_open failed for codepage %s to %s conversion. errno = %s."},
    {mutexInit, "Unexpected error from pthread_mutex_init().  rc = %d."},
    {mutexDestroy, "Unexpected error from pthread_mutex_destroy().  rc = %d."},
    {mutexLock, "Unexpected error from pthread_mutex_lock().  rc = %d."},
    {mutexUnlock, "Unexpected error from pthread_mutex_unlock().  rc = %d."},
    {conditionInit, "Unexpected error from pthread_cond_init().  rc = %d."},
    {conditionDestroy, "Unexpected error from pthread_cond_destroy().  rc = %d."},
    {conditionWait, "Unexpected error from pthread_cond_wait().  rc = %d."},
    {conditionSignal, "Unexpected error from pthread_cond_signal().  rc = %d."},
    {invalidPlatform, "This function is not supported on this platform."},
    {registryOpenFailed,
     "Unexpected error from Windows RegOpenKeyEx().  Open of registry key %s failed with error "
     "%s."},
    {registryQueryFailed,
     "Unexpected error from Windows RegQueryValueEx().  Read of value %s failed with error %s."},
    {notClonable, "Object is not cloneable."},
    {attrInit, "Unexpected error from pthread_attr_init().  rc = %d."},
    {setDetachState, "Unexpected error from pthread_attr_setdetachstate().  rc = %d."},
    {threadCreate, "Unexpected error from pthread_create().  rc = %d."},
    {attrDestroy, "Unexpected error from pthread_attr_destroy().  rc = %d."},
    {unknownException, "An unknown exception was caught.  No exception information available."},
    {threadJoin, "Unexpected error from pthread_join().  rc = %d."},
    {conditionTimedWait, "Unexpected error from pthread_cond_timedwait().  rc = %d."},
    {invalidParameter, "A function or method was called with an invalid parameter."},
    {socketStartupFailed, "Unexpected error from WSAStartup().  rc = %s."},
    {hostNameFailed, "Unexpected error from gethostname().  rc = %s."},
    {hostByNameFailed, "Unexpected error from gethostnamebyname().  rc = %s."},
    {conditionBroadcast, "Unexpected error from pthread_cond_broadcast().  rc = %d."},
    {missingProperty,
     "The configuration file %s is missing the required attribute %s in stanza %s."},
    {keyCreate, "Unexpected error from pthread_key_create().  rc = %d."},
    {setSpecific, "Unexpected error from pthread_setspecific().  rc = %d."},
    {notImplemented, "The requested function is not implemented."},
    {invalidState, "An unexpected lock state was detected.  The current lock state is %s."},
    {lockFailed,
     "An unexpected error was received when trying to obtain a process lock.  rc = %d."},
    {unlockFailed,
     "An unexpected error was received when trying to release a process lock.  rc = %d."},
    {readFailed, "Read failed for a process lock.  rc = %d."},
    {lockFileWriteFailed, "Write failed for a process lock.  rc = %d."},
    {lockFileCreateFailed,
     "Create failed for a process lock.  rc = %d and the lock file name is %s."},
    {lockFileCloseFailed,
     "Close failed for a process lock.  rc = %d and the lock file name is %s."},
    {invalidValue, "The configuration file %s has an invalid value %s for key %s in stanza %s."},
    {invalidNumValue,
     "The configuration file %s has an invalid numeric value %s for key %s in stanza %s."},
    {invalidBoolValue,
     "The configuration file %s has an invalid boolean value %s for key %s in stanza %s."},
    {iteratorState,
     "The iterator for  configuration file %s is in an invalid state for the operation"},
    {accessFailed,
     "Access failed for configuration file %s.  The access function was %s and return code was %d"},
    {invalidData, "The configuration file \"%s\" contains invalid data at line %d.\nData: \"%s\""},
    {noQVREnvironment, "The QVRDIR environment variable is not set."},
    {mbLenFailed, "The qvr_mblen() function returned -1."},
    {codesetFailed, "Codeset handle create failed for codeset \"%s\".  QVRDIR is \"%s\""},
    {unsupported, "The operation is not supported."},
    {toUTF8Failed, "Local codeset %s string could not be converted to UTF-8."},
    {fromUTF8Failed, "UTF-8 string could not be converted to the local codeset %s."},
    {libraryFailed, "Shared library load/unload error (%s) %d.  %s"},
    {symbolFailed, "Shared library resolve error (%s:%s) %d.  %s"},
    {unexpectedEnd, "Unexpected end of file encounted while reading %s."},
    {parseFailed, "Internal error encountered while loading Java property file %s."},
};

constexpr auto kTexts = [] {
    std::array<char const*, kMessageCount> texts = {};
    for (Row const& row : kRows)
        texts[row.number] = row.text;
    return texts;
}();

// The letters of the conversions in a message.
struct InsertTypes {
    char letters[kMaxInserts + 1];
};

constexpr auto kInsertTypes = [] {
    std::array<InsertTypes, kMessageCount> types = {};
    for (Row const& row : kRows) {
        int inserts = 0;
        for (char const* at = row.text; *at != '\0'; ++at)
            if (*at == '%')
                types[row.number].letters[inserts++] = at[1];
    }
    return types;
}();

}  // namespace

char const* messageText(uint32_t number)
{
    return number < kMessageCount ? kTexts[number] : nullptr;
}

char const* messageInsertTypes(uint32_t number)
{
    return number < kMessageCount ? kInsertTypes[number].letters : "";
}

}  // namespace zreporting
