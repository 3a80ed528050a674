#include "last_error.h"

#include <errno.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <exception>
#include <initializer_list>
#include <iterator>
#include <new>
#include <string_view>
#include <system_error>

#include "../ZException.h"
#include "../reporting/messages.h"

namespace zhandles {
namespace {

enum String { fileString, stanzaString, keyString, textString, kStrings };

// Capacities for the strings of usual failures, in the order of String.
constexpr size_t kCapacities[kStrings] = {256, 96, 96, 512};
constexpr size_t kCapacity = 256 + 96 + 96 + 512;

// Trivial, because registering a destructor for a thread allocates memory.
struct Record {
    int code;
    uint32_t messageNumber;
    int error;
    unsigned long line;
    unsigned long column;
    char* block;  // the strings, if one of them exceeds its capacity in `small`; else null
    size_t lengths[kStrings];
    char small[kCapacity];
};

constinit thread_local Record record = {};

void forget(void* block)
{
    free(block);
    record = {};
}

// Frees `block` when the thread ends. Returns false if that cannot be arranged.
bool freeAtThreadEnd(char* block)
{
    static pthread_key_t key;
    static bool const isCreated = pthread_key_create(&key, forget) == 0;
    return isCreated && pthread_setspecific(key, block) == 0;
}

// An insert of a message: a string, or a number if the string is null.
struct Insert {
    char const* text;
    int number = 0;
};

// The pieces of a string: of a message, its text and its inserts.
class Pieces {
public:
    Pieces() = default;
    explicit Pieces(char const* text) { add(text != nullptr ? text : ""); }
    Pieces(char const* message, Insert const* inserts, size_t count, char const* lastLine = nullptr)
    {
        std::string_view rest(message);
        for (size_t used = 0; count_ + 4 < kMaxCount; ++used) {
            size_t const mark = rest.find('%');
            add(rest.substr(0, mark));
            if (mark == rest.npos)
                break;
            rest.remove_prefix(mark + 2);  // the mark and the letter of the conversion
            if (used >= count)
                add("?");
            else if (inserts[used].text != nullptr)
                add(inserts[used].text);
            else
                add(digitsOf(inserts[used].number));
        }
        if (lastLine != nullptr) {
            add("\n");
            add(lastLine);
        }
    }
    Pieces(Pieces const&) = delete;
    Pieces& operator=(Pieces const&) = delete;

    size_t length() const
    {
        size_t sum = 0;
        for (size_t i = 0; i < count_; ++i)
            sum += pieces_[i].size();
        return sum;
    }

    // Copies at most `capacity` bytes to `to`. Returns their number.
    size_t copyTo(char* to, size_t capacity) const
    {
        size_t length = 0;
        for (size_t i = 0; i < count_; ++i)
            length += pieces_[i].copy(to + length, capacity - length);
        return length;
    }

private:
    static constexpr size_t kMaxCount = 2 * zreporting::kMaxInserts + 4;

    void add(std::string_view piece) { pieces_[count_++] = piece; }

    std::string_view digitsOf(int number)
    {
        snprintf(digits_, sizeof digits_, "%d", number);
        return digits_;
    }

    std::string_view pieces_[kMaxCount];
    size_t count_ = 0;
    char digits_[16];  // no message has two numbers
};

// Returns a block for strings that are longer than usual; null if memory is exhausted.
char* newBlock(Pieces const (&strings)[kStrings])
{
    size_t size = kStrings;
    for (Pieces const& string : strings)
        size += string.length();
    auto* const block = static_cast<char*>(malloc(size));
    if (block != nullptr && !freeAtThreadEnd(block)) {
        free(block);
        return nullptr;
    }
    return block;
}

// The strings may view the strings of the previous failure, if the caller passed one of them: copy
// them before the record changes.
void copyStrings(Pieces const (&strings)[kStrings])
{
    bool isUsual = true;
    for (int i = 0; i < kStrings; ++i)
        isUsual = isUsual && strings[i].length() < kCapacities[i];
    char copied[kCapacity];
    char* const old = record.block;
    char* const block = isUsual ? nullptr : newBlock(strings);
    char* at = block != nullptr ? block : copied;
    for (int i = 0; i < kStrings; ++i) {
        size_t const capacity = block != nullptr ? strings[i].length() : kCapacities[i] - 1;
        record.lengths[i] = strings[i].copyTo(at, capacity);
        at[record.lengths[i]] = '\0';
        at += capacity + 1;
    }
    if (block == nullptr) {
        memcpy(record.small, copied, sizeof copied);
        if (old != nullptr)
            freeAtThreadEnd(nullptr);
    }
    record.block = block;
    free(old);
}

// Collects the fields of an exception in the record.
class Recorder {
public:
    Recorder(int code, CallNames const& names) : names_(names)
    {
        record.code = code;
        record.messageNumber = 0;
        record.error = 0;
        record.line = 0;
        record.column = 0;
    }

    void setNames(ZLCString_6_0 const& stanza, ZLCString_6_0 const& key)
    {
        names_.stanza = stanza.getChars();
        names_.key = key.getChars();
    }

    void finish(char const* text)
    {
        copyStrings({Pieces(names_.file), Pieces(names_.stanza), Pieces(names_.key), Pieces(text)});
    }

    // Records a refused argument, with the reason if it is known.
    void finishRefusal(uint32_t message)
    {
        if (names_.reason == nullptr) {
            finish(message, {});
            return;
        }
        record.messageNumber = message;
        finish(names_.reason);
    }

    void finish(uint32_t message, std::initializer_list<Insert> inserts)
    {
        record.messageNumber = message;
        char const* const text = zreporting::messageText(message);
        copyStrings({Pieces(names_.file), Pieces(names_.stanza), Pieces(names_.key),
                     Pieces(text != nullptr ? text : "", inserts.begin(), inserts.size())});
    }

    // Records an invalid line of a configuration file.
    void finishLine(ZPropertiesInvalidDataException_6_0 const& failure)
    {
        if (!failure.propFile().isEmpty())
            names_.file = failure.propFile().getChars();
        record.messageNumber = failure.messageNumber();
        Insert const inserts[] = {{failure.propFile().getChars()},
                                  {nullptr, failure.badline()},
                                  {failure.baddata().getChars()}};
        char const* const text = zreporting::messageText(failure.messageNumber());
        copyStrings({Pieces(names_.file), Pieces(names_.stanza), Pieces(names_.key),
                     Pieces(text, inserts, std::size(inserts), names_.reason)});
    }

    // Records an exception about a configuration file.
    void finish(ZPropertiesException_6_0 const& failure, std::initializer_list<Insert> inserts)
    {
        if (!failure.propFile().isEmpty())
            names_.file = failure.propFile().getChars();
        finish(failure.messageNumber(), inserts);
    }

private:
    CallNames names_;
};

// Records an exception whose inserts include a return code.
template <class Exception>
void recordReturnCode(Recorder& recorder, Exception const& failure)
{
    record.error = failure.returnCode();
    recorder.finish(failure.messageNumber(), {{nullptr, failure.returnCode()}});
}

void recordCurrent(Recorder& recorder)
{
    try {
        throw;
    } catch (ZPropertiesMissingPropertyException_6_0 const& e) {
        recorder.setNames(e.category(), e.key());
        recorder.finish(
            e, {{e.propFile().getChars()}, {e.key().getChars()}, {e.category().getChars()}});
    } catch (ZPropertiesInvalidValueException_6_0 const& e) {
        recorder.setNames(e.category(), e.key());
        recorder.finish(e, {{e.propFile().getChars()},
                            {e.value().getChars()},
                            {e.key().getChars()},
                            {e.category().getChars()}});
    } catch (ZPropertiesInvalidDataException_6_0 const& e) {
        record.line = static_cast<unsigned long>(std::max(e.badline(), 0));
        record.column = static_cast<unsigned long>(std::max(e.column(), 0));
        recorder.finishLine(e);
    } catch (ZPropertiesIOException_6_0 const& e) {
        record.error = e.excerrno();
        recorder.finish(e,
                        {{e.propFile().getChars()}, {e.api().getChars()}, {nullptr, e.excerrno()}});
    } catch (ZPropertiesException_6_0 const& e) {
        recorder.finish(e, {{e.propFile().getChars()}});
    } catch (ZInvalidParameterException_6_0 const& e) {
        recorder.finishRefusal(e.messageNumber());
    } catch (ZOutOfMemoryException_6_0 const& e) {
        record.error = ENOMEM;
        recorder.finish(e.messageNumber(), {});
    } catch (ZResourceException_6_0 const& e) {
        recordReturnCode(recorder, e);
    } catch (ZThreadException_6_0 const& e) {
        recordReturnCode(recorder, e);
    } catch (ZConditionException_6_0 const& e) {
        recordReturnCode(recorder, e);
    } catch (ZException_6_0 const& e) {
        recorder.finish(e.messageNumber(), {});
    } catch (std::bad_alloc const&) {
        record.error = ENOMEM;
        recorder.finish(zreporting::outOfMemory, {});
    } catch (std::system_error const& e) {
        record.error = e.code().value();
        recorder.finish(e.what());
    } catch (std::exception const& e) {
        recorder.finish(e.what());
    } catch (...) {
        recorder.finish(zreporting::unknownException, {});
    }
}

}  // namespace

int recordException(int code, CallNames const& names) noexcept
{
    int const before = errno;
    Recorder recorder(code, names);
    recordCurrent(recorder);
    errno = before;
    return code;
}

int recordFailure(int code, char const* text, CallNames const& names, uint32_t message, int error,
                  unsigned long line) noexcept
{
    int const before = errno;
    Recorder recorder(code, names);
    record.messageNumber = message;
    record.error = error;
    record.line = line;
    recorder.finish(text);
    errno = before;
    return code;
}

LastError lastError() noexcept
{
    char const* strings[kStrings];
    char const* at = record.block != nullptr ? record.block : record.small;
    for (int i = 0; i < kStrings; ++i) {
        strings[i] = at;
        at += record.block != nullptr ? record.lengths[i] + 1 : kCapacities[i];
    }
    return {record.code,           record.messageNumber, record.error,
            record.line,           record.column,        strings[fileString],
            strings[stanzaString], strings[keyString],   strings[textString]};
}

}  // namespace zhandles
