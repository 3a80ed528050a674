// read_qsettings: prints the reading of an INI file by QSettings, as tests/dialects/peers.py has
// it. With a second argument "latin1", it reads as a program of Qt 5 does that chooses no codec,
// else as UTF-8.
//
// The values of a list are joined by ", ".
#include <QSettings>
#include <QStringList>
#include <QVariant>
#include <cstdio>
#include <cstring>

namespace {

void printQuoted(QByteArray const& bytes)
{
    putchar('"');
    for (char const c : bytes) {
        auto const byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte > 0x7e || c == '"' || c == '\\')
            printf("\\u%04x", byte);
        else
            putchar(c);
    }
    putchar('"');
}

}  // namespace

int main(int argc, char** argv)
{
    bool const isLatin1 = argc == 3 && strcmp(argv[2], "latin1") == 0;
    if (argc != 2 && !isLatin1)
        return 2;
    QSettings settings(QString::fromLocal8Bit(argv[1]), QSettings::IniFormat);
    if (!isLatin1)
        settings.setIniCodec("UTF-8");
    QStringList const keys = settings.allKeys();
    printf("{%s\"values\": [",
           settings.status() == QSettings::NoError ? "" : "\"refused\": \"format error\", ");
    bool first = true;
    for (QString const& key : keys) {
        int const slash = key.indexOf('/');
        printf(first ? "[" : ", [");
        first = false;
        QByteArray const stanza = slash < 0 ? "." : key.left(slash).toUtf8();
        printQuoted(slash >= 0 && stanza == "." ? ".]1" : stanza);
        printf(", ");
        printQuoted(key.mid(slash + 1).toUtf8());
        printf(", ");
        QVariant const value = settings.value(key);
        printQuoted(value.type() == QVariant::StringList ? value.toStringList().join(", ").toUtf8()
                                                         : value.toByteArray());
        printf("]");
    }
    printf("]}\n");
    return 0;
}
