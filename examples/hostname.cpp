// Puts the name of this host into a configuration file.
// usage: hostname FILE
#include <Z/ZException.h>
#include <Z/ZLocalHostName.h>
#include <Z/ZStanzaFileProperties.h>
#include <stdio.h>

int main(int argc, char** argv)
{
    if (argc != 2) {
        fputs("usage: hostname FILE\n", stderr);
        return 2;
    }
    try {
        // A host without a name is reported through the message service, and the text is empty.
        ZLCString_6_0 host = ZLocalHostName_6_0::getLocalHostName();
        if (host.isEmpty())
            host = "unknown";
        printf("this host: %s\n", host.getChars());

        int const keepComments = 1;
        ZStanzaFileProperties_6_0 config(argv[1], keepComments);
        config.setValue("listener", "certificate", host.getChars());
        config.store(nullptr);
    } catch (ZException_6_0& e) {
        e.dumpException();
        return 1;
    }
    return 0;
}
