#include "settings/fleet_settings.h"

#include <Z/ZArrayList.h>
#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZStanzaFileProperties.h>
#include <ctype.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <algorithm>
#include <memory>

namespace zfleet {

namespace {

constexpr char kSource[] = "src/fleet/settings/fleet_settings";
enum RaiseSite { raiseForMissingKey = 1, raiseForValue, raiseForCertificate, raiseForSecret };

constexpr unsigned kMaxMilliseconds = 3600'000;
constexpr unsigned kMaxSeconds = 86'400;

class Reader {
public:
    explicit Reader(std::string const& fleet)
        : path_(settingsPath()), fleet_(fleet), file_(path_.c_str(), 0)
    {
    }

    std::string text(char const* key, std::string const& fallback = {}) const
    {
        ZLCString_6_0 value;
        file_.getValue(fleet_.c_str(), key, value, 0, fallback.c_str());
        return value.getChars();
    }

    std::string requiredText(char const* key) const
    {
        std::string const value = text(key);
        if (value.empty())
            ZPropertiesMissingPropertyException_6_0(path_.c_str(), fleet_.c_str(), key)
                .throwException(kSource, raiseForMissingKey);
        return value;
    }

    std::vector<std::string> texts(char const* key) const
    {
        ZArrayList_6_0 values(4, 1);
        file_.getValues(fleet_.c_str(), key, values, zPropLocalStrings);
        std::vector<std::string> found;
        for (unsigned i = 0; i < values.size(); ++i)
            found.push_back(static_cast<ZLCString_6_0 const*>(values.get(i))->getChars());
        return found;
    }

    // A number from `least` to `most`.
    unsigned number(char const* key, unsigned least, unsigned most, unsigned fallback) const
    {
        unsigned const value = file_.getIntegerValue(fleet_.c_str(), key, 0, fallback);
        if (value < least || value > most)
            refuse(key, text(key));
        return value;
    }

    bool isSet(char const* key) const
    {
        return file_.getBooleanValue(fleet_.c_str(), key, 0, 0) != 0;
    }

    bool isObfuscated(char const* key) const
    {
        return file_.isObfuscated(fleet_.c_str(), key) != 0;
    }

    // Requires that only the owner has access to a private key. The group may read a key of root.
    static void requirePrivate(std::string const& path, FILE* file)
    {
        struct stat status {};
        int const rc = fstat(fileno(file), &status);
        mode_t const refused = status.st_uid == 0 ? S_IWGRP | S_IXGRP | S_IRWXO : S_IRWXG | S_IRWXO;
        if (rc != 0 || (status.st_mode & refused) != 0)
            ZPropertiesIOException_6_0(path.c_str(), "fstat()", rc != 0 ? errno : EPERM)
                .throwException(kSource, raiseForSecret);
    }

    // Returns the contents of the file that a key names; empty without the key.
    std::string contents(char const* key, bool isSecret = false) const
    {
        std::string const path = text(key);
        if (path.empty())
            return {};
        std::unique_ptr<FILE, int (*)(FILE*)> const file(fopen(path.c_str(), "re"), fclose);
        std::string bytes;
        int error = errno;
        if (file != nullptr) {
            if (isSecret)
                requirePrivate(path, file.get());
            char chunk[4096];
            size_t length;
            while ((length = fread(chunk, 1, sizeof chunk, file.get())) > 0)
                bytes.append(chunk, length);
            error = ferror(file.get()) != 0 ? errno : bytes.empty() ? EINVAL : 0;
        }
        if (error != 0)
            ZPropertiesIOException_6_0(path.c_str(), "read()", error)
                .throwException(kSource, raiseForCertificate);
        return bytes;
    }

    [[noreturn]] void refuse(char const* key, std::string const& value) const
    {
        ZPropertiesInvalidValueException_6_0(path_.c_str(), fleet_.c_str(), key, value.c_str())
            .throwException(kSource, raiseForValue);
        abort();  // not reached
    }

private:
    std::string const path_;
    std::string const fleet_;
    ZStanzaFileProperties_6_0 file_;
};

// An unencrypted connection must be chosen: it is never the consequence of a missing key.
Certificates readCertificates(Reader const& reader)
{
    if (reader.isSet("plain")) {
        // A password would be readable on the network.
        for (char const* const key : {"ca", "certificate", "key", "user", "password"})
            if (!reader.text(key).empty())
                reader.refuse("plain", reader.text("plain"));
        return {};
    }
    reader.requiredText("ca");
    bool const hasCertificate = !reader.text("certificate").empty() || !reader.text("key").empty();
    if (hasCertificate) {
        reader.requiredText("certificate");
        reader.requiredText("key");
    }
    return {reader.contents("ca"), reader.contents("certificate"), reader.contents("key", true)};
}

void readUser(Reader const& reader, Settings& settings)
{
    settings.user = reader.text("user");
    bool const hasPassword = !reader.text("password").empty();
    if (settings.user.empty() && !hasPassword)
        return;
    settings.user = reader.requiredText("user");
    settings.password = reader.requiredText("password");
    if (!reader.isObfuscated("password"))
        reader.refuse("password", "");
}

}  // namespace

std::string settingsPath()
{
    char const* const path = secure_getenv("ZFLEETCONF");
    return path != nullptr && *path != 0 ? path : ZFLEET_CONF;
}

bool isAddress(std::string const& address)
{
    size_t const colon = address.rfind(':');
    if (colon == std::string::npos || colon == 0)
        return false;
    std::string const port = address.substr(colon + 1);
    std::string host = address.substr(0, colon);
    bool const isBracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
    if (isBracketed)
        host = host.substr(1, host.size() - 2);
    auto const isHostByte = [&](unsigned char byte) {
        return isalnum(byte) != 0 || byte == '.' || byte == '-' || byte == '_' ||
               (isBracketed && (byte == ':' || byte == '%'));
    };
    auto const isDigit = [](unsigned char byte) { return isdigit(byte) != 0; };
    return std::all_of(host.begin(), host.end(), isHostByte) && !port.empty() && port.size() <= 5 &&
           std::all_of(port.begin(), port.end(), isDigit) && atoi(port.c_str()) > 0 &&
           atoi(port.c_str()) <= 65535;
}

Settings readSettings(std::string const& fleet)
{
    Reader const reader(fleet);
    Settings settings;
    settings.fleet = fleet;
    reader.requiredText("endpoint");
    for (std::string const& endpoint : reader.texts("endpoint")) {
        if (!isAddress(endpoint))
            reader.refuse("endpoint", endpoint);
        settings.endpoints.push_back(endpoint);
    }
    settings.certificates = readCertificates(reader);
    readUser(reader, settings);
    settings.prefix = reader.text("prefix", settings.prefix);
    if (settings.prefix.front() != '/' || settings.prefix.back() == '/')
        reader.refuse("prefix", settings.prefix);
    settings.replicaDirectory = reader.text("replica");
    settings.callTimeout = std::chrono::milliseconds(reader.number(
        "call", 1, kMaxMilliseconds,
        static_cast<unsigned>(
            std::chrono::duration_cast<std::chrono::milliseconds>(settings.callTimeout).count())));
    settings.budget = std::chrono::seconds(reader.number(
        "budget", 1, kMaxSeconds,
        static_cast<unsigned>(
            std::chrono::duration_cast<std::chrono::seconds>(settings.budget).count())));
    settings.lookInterval = std::chrono::seconds(reader.number(
        "look", 1, kMaxSeconds,
        static_cast<unsigned>(
            std::chrono::duration_cast<std::chrono::seconds>(settings.lookInterval).count())));
    settings.leaseSeconds = reader.number("lease", 1, kMaxSeconds, settings.leaseSeconds);
    settings.keptGenerations =
        reader.number("keep", 1, kMaxKeptGenerations, settings.keptGenerations);
    return settings;
}

}  // namespace zfleet
