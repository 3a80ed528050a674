// JavaPeer: java.util.Properties, in a Java process that runs PropertiesPeer.java (in this
// directory) as long as the object lives.
//
// Strings of the platform are encoded as bytes, each UTF-16 unit separately, unpaired surrogates
// too.
#pragma once

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

class JavaPeer {
public:
    using Entries = std::map<std::string, std::string>;
    using Units = std::u16string;

    /// Starts the process: `java` runs the source file `program`.
    JavaPeer(char const* java, char const* program)
    {
        int to[2];
        int from[2];
        if (pipe2(to, O_CLOEXEC) != 0 || pipe2(from, O_CLOEXEC) != 0)
            throw std::runtime_error("no pipe");
        child_ = fork();
        if (child_ == 0) {
            dup2(to[0], STDIN_FILENO);
            dup2(from[1], STDOUT_FILENO);
            execl(java, java, "-Xmx1g", program, nullptr);
            _exit(127);
        }
        close(to[0]);
        close(from[1]);
        to_ = fdopen(to[1], "w");
        from_ = fdopen(from[0], "r");
    }
    JavaPeer(JavaPeer const&) = delete;
    JavaPeer& operator=(JavaPeer const&) = delete;
    ~JavaPeer()
    {
        fclose(to_);
        fclose(from_);
        waitpid(child_, nullptr, 0);
    }

    /// Returns the entries that the platform reads from a file of these bytes; nothing if it
    /// refuses them.
    std::optional<Entries> load(std::string_view file)
    {
        fputc('l', to_);
        putNumber(file.size());
        fwrite(file.data(), 1, file.size(), to_);
        fflush(to_);
        auto const count = static_cast<int32_t>(getNumber());
        if (count < 0)
            return std::nullopt;
        Entries entries;
        for (int32_t i = 0; i < count; ++i) {
            std::string const key = getText();
            entries[key] = getText();
        }
        return entries;
    }

    /// Returns the file that the platform writes.
    std::string store(Entries const& entries)
    {
        fputc('s', to_);
        putNumber(entries.size());
        for (auto const& [key, value] : entries) {
            putText(key);
            putText(value);
        }
        fflush(to_);
        std::string file(getNumber(), '\0');
        if (fread(file.data(), 1, file.size(), from_) != file.size())
            throw std::runtime_error("the Java process has ended");
        return file;
    }

    /// Returns the processor time, in nanoseconds, that the platform takes to read the file at
    /// `path`, without its garbage collector.
    uint64_t time(std::string const& path)
    {
        fputc('t', to_);
        putText(path);
        return getTime();
    }

    /// Returns the processor time, in nanoseconds, that the platform takes to write the entries of
    /// the file at `path` to the file at `target`, without its garbage collector.
    uint64_t timeStore(std::string const& path, std::string const& target)
    {
        fputc('w', to_);
        putText(path);
        putText(target);
        return getTime();
    }

    static void addUnit(std::string& bytes, unsigned unit)
    {
        auto const add = [&bytes](unsigned byte) { bytes += static_cast<char>(byte); };
        if (unit >= 0x800) {
            add(0xE0 | unit >> 12);
            add(0x80 | (unit >> 6 & 0x3F));
        } else if (unit >= 0x80) {
            add(0xC0 | unit >> 6);
        } else {
            add(unit);
            return;
        }
        add(0x80 | (unit & 0x3F));
    }

private:
    uint64_t getTime()
    {
        fflush(to_);
        uint64_t const high = getNumber();
        return high << 32 | getNumber();
    }

    void putNumber(size_t number)
    {
        for (int shift = 24; shift >= 0; shift -= 8)
            fputc(static_cast<int>(number >> shift & 0xFF), to_);
    }

    // Sends a string; `bytes` is encoded as by addUnit().
    void putText(std::string const& bytes)
    {
        Units units;
        for (size_t i = 0; i < bytes.size();) {
            auto const byte = [&bytes, i](size_t at) {
                return static_cast<unsigned char>(bytes.at(i + at));
            };
            unsigned const lead = byte(0);
            if (lead < 0x80) {
                units += static_cast<char16_t>(lead);
                i += 1;
            } else if (lead < 0xE0) {
                units += static_cast<char16_t>((lead & 0x1F) << 6 | (byte(1) & 0x3F));
                i += 2;
            } else {
                units += static_cast<char16_t>((lead & 0x0F) << 12 | (byte(1) & 0x3F) << 6 |
                                               (byte(2) & 0x3F));
                i += 3;
            }
        }
        putNumber(units.size());
        for (char16_t const unit : units) {
            fputc(unit >> 8, to_);
            fputc(unit & 0xFF, to_);
        }
    }

    unsigned getByte()
    {
        int const byte = fgetc(from_);
        if (byte == EOF)
            throw std::runtime_error("the Java process has ended");
        return static_cast<unsigned>(byte);
    }

    uint32_t getNumber()
    {
        uint32_t number = 0;
        for (int i = 0; i < 4; ++i)
            number = number << 8 | getByte();
        return number;
    }

    std::string getText()
    {
        std::string bytes;
        for (uint32_t units = getNumber(); units > 0; --units) {
            unsigned const high = getByte();
            addUnit(bytes, high << 8 | getByte());
        }
        return bytes;
    }

    pid_t child_;
    FILE* to_;
    FILE* from_;
};
