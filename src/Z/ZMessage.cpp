#include "ZMessage.h"

#include <errno.h>
#include <pthread.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <new>

#include "ZException.h"
#include "ZLCString.h"
#include "ZUTF8String.h"
#include "reporting/messages.h"
#include "reporting/running_report.h"
#include "reporting/stream.h"

namespace {

// Buffers a report and writes it to standard error with one call. Does not allocate, because it
// also reports exhausted memory, and preserves errno.
class Report {
public:
    Report() : errno_(errno) {}
    Report(Report const&) = delete;
    Report& operator=(Report const&) = delete;
    ~Report()
    {
        zreporting::writeNow(stderr, pieces_, count_);
        errno = errno_;
    }

    Report& operator<<(char const* text)
    {
        add(text, strlen(text));
        return *this;
    }

    Report& operator<<(int number)
    {
        char digits[kNumberSize];
        char const* const end = std::to_chars(digits, digits + sizeof digits, number).ptr;
        copy(digits, static_cast<size_t>(end - digits));
        return *this;
    }

    /// owns    borrowed until the report is destroyed.
    void add(char const* bytes, size_t count)
    {
        if (count <= kTextSize - std::min(used_, kTextSize))
            copy(bytes, count);
        else
            append(bytes, count);
    }

private:
    // Short parts are copied, which keeps the number of pieces small; a long insert is a piece of
    // its own. Numbers always fit.
    static constexpr size_t kTextSize = 2048;
    static constexpr size_t kNumberSize = 16;
    static constexpr int kMaxNumbers = 4 + zreporting::kMaxInserts;
    static constexpr int kMaxPieces = 64;

    void copy(char const* bytes, size_t count)
    {
        char* const at = buffer_ + used_;
        memcpy(at, bytes, count);
        used_ += count;
        if (count_ > 0 &&
            static_cast<char*>(pieces_[count_ - 1].iov_base) + pieces_[count_ - 1].iov_len == at)
            pieces_[count_ - 1].iov_len += count;
        else
            append(at, count);
    }

    void append(char const* bytes, size_t count)
    {
        if (count_ < kMaxPieces)
            pieces_[count_++] = {const_cast<char*>(bytes), count};
    }

    char buffer_[kTextSize + kMaxNumbers * kNumberSize];
    size_t used_ = 0;
    iovec pieces_[kMaxPieces];
    int count_ = 0;
    int const errno_;
};

void addThreadLine(Report& report)
{
    // The low 32 bits distinguish threads well enough for a reader of reports.
    report << " Thread: " << static_cast<int>(pthread_self()) << "\n";
}

char const* printable(char const* source)
{
    return source != nullptr ? source : "(null)";
}

// Writes `text` with the inserts in place of its conversions, %s and %d. `types` are the types of
// the inserts; null means the types of the conversions. Each insert is fetched with its own type,
// so an exception with the message number of another class does no harm; a missing insert is shown
// as empty. If the types are not `certain`, they may belong to another print(): an insert is then
// printed as a string only if the conversion is %s too, so that no number is used as an address.
void addText(Report& report, char const* text, char const* types, bool certain, va_list inserts)
{
    while (char const* const percent = strchr(text, '%')) {
        report.add(text, static_cast<size_t>(percent - text));
        char const asked = percent[1];
        char const type = types == nullptr ? asked : *types != '\0' ? *types++ : '\0';
        if (type == 's' && (certain || asked == 's')) {
            char const* const insert = va_arg(inserts, char const*);
            report << (insert != nullptr ? insert : "");
        } else if (type == 's') {
            va_arg(inserts, char const*);
        } else if (type == 'd') {
            report << va_arg(inserts, int);
        }
        text = percent + 2;
    }
    report << text;
}

// Returns the types of the inserts in the running report of `exception`. Returns null if no such
// report runs, or if its print() is not the library's and states no types.
char const* statedInsertTypes(ZZException_6_0 const* exception)
{
    auto const* const report = zreporting::RunningReport::of(exception);
    return report != nullptr ? report->types() : nullptr;
}

// Storage of the built-in service, which is never destroyed; its construction cannot fail.
alignas(
    ZDefaultMessageService_6_0) unsigned char serviceStorage[sizeof(ZDefaultMessageService_6_0)];

}  // namespace

ZMessageService_6_0 const* ZMessageService_6_0::ms_;
ZMessageService_6_0 const* ZMessageService_6_0::dms_;

ZMessageService_6_0 const* ZMessageService_6_0::messageService()
{
    std::atomic_ref installed(ms_);
    ZMessageService_6_0 const* service = installed.load(std::memory_order_acquire);
    if (service == nullptr) {
        ensureInit();
        service = installed.load(std::memory_order_acquire);
    }
    return service;
}

ZMessageService_6_0 const* ZMessageService_6_0::defaultMessageService()
{
    ensureInit();
    return dms_;
}

void ZMessageService_6_0::setMessageService(ZMessageService_6_0 const* service)
{
    ensureInit();
    std::atomic_ref(ms_).store(service != nullptr ? service : dms_, std::memory_order_release);
}

void ZMessageService_6_0::routeZZException(ZZException_6_0 const* e, va_list inserts)
{
    messageService()->outputException(e, inserts);
}

void ZMessageService_6_0::init()
{
    dms_ = new (serviceStorage) ZDefaultMessageService_6_0;
    std::atomic_ref(ms_).store(dms_, std::memory_order_release);
}

void ZMessageService_6_0::ensureInit()
{
    [[maybe_unused]] static bool const initialised = (init(), true);
}

ZDefaultMessageService_6_0::~ZDefaultMessageService_6_0() = default;

ZObject_6_0* ZDefaultMessageService_6_0::clone() const
{
    return new ZDefaultMessageService_6_0(*this);
}

void ZDefaultMessageService_6_0::outputException(ZZException_6_0 const* e, va_list inserts) const
{
    Report report;
    auto const number = static_cast<int>(e->messageNumber());
    report << "Exception: " << printable(e->exceptionName()) << "\n File: \"" << printable(e->who())
           << "\" " << static_cast<int>(e->where()) << "\n Error: " << number << "\n";
    addThreadLine(report);
    // KEPT: the table size is of no use to readers, but a log scanner that reads the message text
    // from the line after it would find none. Test: ZMessage.KeepsTheTableSizeLine
    report << "NUM_MSGS = " << zreporting::kMessageCount << "\n";
    char const* const text = zreporting::messageText(e->messageNumber());
    if (text == nullptr)
        report << "No default text defined in ZMessage.cpp for the exception\n";
    else if (char const* const stated = statedInsertTypes(e))
        addText(report, text, stated, true, inserts);
    else
        addText(report, text, e->insertTypes(), false, inserts);
}

void ZDefaultMessageService_6_0::outputMessage(char const* file, int line, int errorNumber,
                                               int insertCount, ZLCString_6_0 const* i1,
                                               ZLCString_6_0 const* i2, ZLCString_6_0 const* i3,
                                               ZLCString_6_0 const* i4, ZLCString_6_0 const* i5,
                                               ZLCString_6_0 const* i6) const
{
    Report report;
    report << "Error: " << errorNumber << "\n File: \"" << printable(file) << "\" " << line << "\n";
    addThreadLine(report);
    if (insertCount < 1)
        return;
    report << "Additional Information:\n";
    ZLCString_6_0 const* const inserts[zreporting::kMaxInserts] = {i1, i2, i3, i4, i5, i6};
    for (int i = 0; i < std::min(insertCount, zreporting::kMaxInserts); ++i)
        if (inserts[i] != nullptr)
            report << inserts[i]->getChars() << "\n";
}

void ZDefaultMessageService_6_0::outputMessageUTF8(char const* file, int line, int errorNumber,
                                                   int insertCount, ZUTF8String_6_0 const*,
                                                   ZUTF8String_6_0 const*, ZUTF8String_6_0 const*,
                                                   ZUTF8String_6_0 const*, ZUTF8String_6_0 const*,
                                                   ZUTF8String_6_0 const*) const
{
    // KEPT: prints an empty line for each UTF-8 insert: standard error may not accept UTF-8. On a
    // terminal with another codeset the bytes would be other characters. A log scanner that expects
    // a line per insert after "Additional Information:" needs the empty ones.
    // Test: ZMessage.KeepsUTF8InsertsOutOfTheReport
    ZLCString_6_0 const empty[zreporting::kMaxInserts];
    outputMessage(file, line, errorNumber, insertCount, &empty[0], &empty[1], &empty[2], &empty[3],
                  &empty[4], &empty[5]);
}

void ZDefaultMessageService_6_0::outputException(ZException_6_0& e) const
{
    e.print();
}
