// TextServices: handles of the text services that release themselves, and small helpers.
#pragma once

#include <gtest/gtest.h>
#include <stdint.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "CharacterSets.h"
#include "qvr.h"

class Codeset {
public:
    explicit Codeset(char const* name) : cs_(qvr_cs_new(name)) {}
    Codeset(Codeset const&) = delete;
    Codeset& operator=(Codeset const&) = delete;
    ~Codeset() { qvr_cs_free(cs_); }
    operator qvr_cs_t() const { return cs_; }

private:
    qvr_cs_t const cs_;
};

class Locale {
public:
    explicit Locale(char const* name) : loc_(qvr_loc_new(name)) {}
    Locale(Locale const&) = delete;
    Locale& operator=(Locale const&) = delete;
    ~Locale() { qvr_loc_free(loc_); }
    operator qvr_loc_t() const { return loc_; }

private:
    qvr_loc_t const loc_;
};

// A directory that is removed with everything in it.
class TemporaryDirectory {
public:
    TemporaryDirectory()
    {
        std::string path = (std::filesystem::temp_directory_path() / "qvrTestXXXXXX").string();
        if (mkdtemp(path.data()) == nullptr)
            throw std::filesystem::filesystem_error(
                path, std::error_code(errno, std::generic_category()));
        path_ = path;
    }
    TemporaryDirectory(TemporaryDirectory const&) = delete;
    TemporaryDirectory& operator=(TemporaryDirectory const&) = delete;
    ~TemporaryDirectory() { std::filesystem::remove_all(path_); }

    std::string path(char const* name = "") const { return (path_ / name).string(); }
    void write(char const* name, std::string const& text) const
    {
        std::ofstream(path_ / name, std::ios::binary) << text;
    }

private:
    std::filesystem::path path_;
};

inline std::string toUtf8(qvr_cs_t cs, std::string const& text)
{
    std::string out(text.size() * 8 + 8, '\0');
    ptrdiff_t const n = qvr_to_utf8(cs, text.data(), text.size(), out.data(), out.size());
    return n < 0 ? "failed: " + std::to_string(n) : out.substr(0, static_cast<size_t>(n));
}

inline std::string fromUtf8(qvr_cs_t cs, std::string const& text)
{
    std::string out(text.size() * 8 + 8, '\0');
    ptrdiff_t const n = qvr_from_utf8(cs, text.data(), text.size(), out.data(), out.size());
    return n < 0 ? "failed: " + std::to_string(n) : out.substr(0, static_cast<size_t>(n));
}

inline std::string hex(std::string const& bytes)
{
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (char const c : bytes) {
        text += kDigits[static_cast<unsigned char>(c) / 16];
        text += kDigits[static_cast<unsigned char>(c) % 16];
    }
    return text;
}
