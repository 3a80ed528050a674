// FleetFile: a file of the fleets, which ZFLEETCONF names as long as the object exists.
#pragma once

#include <TestDirectory.h>
#include <Z/ZStanzaFileProperties.h>
#include <stdlib.h>

#include <string>
#include <vector>

class FleetFile {
public:
    explicit FleetFile(std::string const& text)
    {
        path_ = directory_.write("fleets.conf", text);
        setenv("ZFLEETCONF", path_.c_str(), 1);
    }
    FleetFile(FleetFile const&) = delete;
    FleetFile& operator=(FleetFile const&) = delete;
    ~FleetFile() { unsetenv("ZFLEETCONF"); }

    std::string const& path() const { return path_; }
    TestDirectory const& directory() const { return directory_; }

    /// Adds an obfuscated value.
    void obfuscate(char const* stanza, char const* key, char const* value) const
    {
        ZStanzaFileProperties_6_0 file(path_.c_str(), 1);
        file.setValue(stanza, key, value, 1);
        file.store(nullptr);
    }

    /// Returns a stanza "test" with endpoints that are called without encryption.
    static std::string textFor(std::vector<std::string> const& endpoints)
    {
        std::string text = "[test]\nplain = yes\n";
        for (std::string const& endpoint : endpoints)
            text += "endpoint = " + endpoint + "\n";
        return text;
    }

private:
    TestDirectory const directory_;
    std::string path_;
};
