// Installs a message service of its own: every report of the library goes to the program's log, in
// the program's form. usage: messages FILE
#include <Z/ZException.h>
#include <Z/ZMessage.h>
#include <Z/ZStanzaFileProperties.h>
#include <stdarg.h>
#include <stdio.h>

namespace {

// One line per report: severity, number, name and inserts.
class LogService final : public ZMessageService_6_0 {
public:
    void outputMessage(char const* file, int line, int errorNumber, int insertCount,
                       ZLCString_6_0 const* i1, ZLCString_6_0 const* i2, ZLCString_6_0 const* i3,
                       ZLCString_6_0 const* i4, ZLCString_6_0 const* i5,
                       ZLCString_6_0 const* i6) const override
    {
        ZLCString_6_0 const* const inserts[] = {i1, i2, i3, i4, i5, i6};
        printf("note %d from %s:%d", errorNumber, file, line);
        for (int i = 0; i < insertCount && i < 6; ++i) {
            if (inserts[i] != nullptr)
                printf(" <%s>", inserts[i]->getChars());
        }
        putchar('\n');
    }

    void outputMessageUTF8(char const* file, int line, int errorNumber, int, ZUTF8String_6_0 const*,
                           ZUTF8String_6_0 const*, ZUTF8String_6_0 const*, ZUTF8String_6_0 const*,
                           ZUTF8String_6_0 const*, ZUTF8String_6_0 const*) const override
    {
        printf("note %d from %s:%d\n", errorNumber, file, line);
    }

    // Makes the exception print itself, which calls the function below with its inserts.
    void outputException(ZException_6_0& e) const override { e.print(); }

    void outputException(ZZException_6_0 const* e, va_list inserts) const override
    {
        printf("error %u %s", e->messageNumber(), e->exceptionName());
        char const* const types = e->insertTypes();
        for (char const* type = types == nullptr ? "" : types; *type != 0; ++type) {
            if (*type == 's')
                printf(" <%s>", va_arg(inserts, char const*));
            else
                printf(" <%d>", va_arg(inserts, int));
        }
        putchar('\n');
    }
};

void show(ZStanzaFileProperties_6_0 const& config, char const* stanza, char const* key)
{
    try {
        int const required = 1;
        printf("%s = %u\n", key, config.getIntegerValue(stanza, key, required, 0));
    } catch (ZException_6_0& e) {
        e.dumpException();
    }
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        fputs("usage: messages FILE\n", stderr);
        return 2;
    }
    LogService service;
    ZMessageService_6_0::setMessageService(&service);
    try {
        ZStanzaFileProperties_6_0 const config(argv[1], 0);
        show(config, "listener", "idle-timeout");
        show(config, "listener", "backlog");
        show(config, "listener", "certificate");
        ZStanzaFileProperties_6_0 const missing("no-such-file.conf", 0);
    } catch (ZException_6_0& e) {
        e.dumpException();
    }
    ZLCString_6_0 const what("configuration read");
    ZMessageService_6_0::messageService()->outputMessage(
        "examples/messages.cpp", 1, 0, 1, &what, nullptr, nullptr, nullptr, nullptr, nullptr);
    // The service must not be installed any more when it is destroyed.
    ZMessageService_6_0::setMessageService(nullptr);
    return 0;
}
