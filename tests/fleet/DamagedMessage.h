// DamagedMessage: changes a message of the wire format at random: fields that are missing, doubled,
// of another size, or of another type.
#pragma once

#include <stdint.h>

#include <random>
#include <string>
#include <vector>

class DamagedMessage {
public:
    explicit DamagedMessage(unsigned seed) : random_(seed) {}

    /// Returns a copy of `bytes` with a few changes, in the message or in messages within.
    std::string damage(std::string const& bytes, unsigned depth = 0)
    {
        if (choose(20) == 0)
            return bytes.substr(0, choose(static_cast<unsigned>(bytes.size()) + 1));
        std::vector<Field> fields;
        if (!parse(bytes, fields) || fields.empty())
            return garbage();
        Field& field = fields[choose(static_cast<unsigned>(fields.size()))];
        bool const isInner = field.type == kBytes && depth < 4 && choose(3) != 0;
        if (isInner) {
            field.bytes = damage(field.bytes, depth + 1);
        } else {
            switch (choose(6)) {
                case 0:
                    fields.erase(fields.begin() + (&field - fields.data()));
                    break;
                case 1:
                    fields.push_back(Field(field));
                    break;
                case 2:
                    field.type = field.type == kBytes ? kVarint : kBytes;
                    break;
                case 3:
                    field.number = 1 + choose(16);
                    break;
                default:
                    field.value = extreme();
                    field.bytes = garbage();
            }
        }
        std::string result;
        for (Field const& present : fields)
            write(present, result);
        return result;
    }

private:
    enum Type : unsigned { kVarint = 0, kBytes = 2 };

    struct Field {
        unsigned number = 0;
        unsigned type = kVarint;
        uint64_t value = 0;
        std::string bytes = {};
    };

    unsigned choose(unsigned count) { return static_cast<unsigned>(random_() % count); }

    uint64_t extreme()
    {
        uint64_t const values[] = {0,
                                   1,
                                   2,
                                   0x7fffffff,
                                   0xffffffff,
                                   0x7fffffffffffffff,
                                   0x8000000000000000,
                                   0xffffffffffffffff,
                                   random_()};
        return values[choose(9)];
    }

    std::string garbage()
    {
        unsigned const sizes[] = {0, 1, 7, 300, 70'000};
        std::string bytes(sizes[choose(5)], '\0');
        for (char& byte : bytes)
            byte = static_cast<char>(random_());
        return bytes;
    }

    static bool readVarint(std::string const& bytes, size_t& at, uint64_t& value)
    {
        value = 0;
        for (unsigned shift = 0; at < bytes.size() && shift < 64; shift += 7) {
            auto const byte = static_cast<unsigned char>(bytes[at++]);
            value |= uint64_t{byte & 0x7fu} << shift;
            if (byte < 0x80)
                return true;
        }
        return false;
    }

    static bool parse(std::string const& bytes, std::vector<Field>& fields)
    {
        for (size_t at = 0; at < bytes.size();) {
            Field field;
            uint64_t tag = 0;
            if (!readVarint(bytes, at, tag) || !readVarint(bytes, at, field.value))
                return false;
            field.number = static_cast<unsigned>(tag >> 3);
            field.type = static_cast<unsigned>(tag & 7);
            if (field.type == kBytes) {
                if (field.value > bytes.size() - at)
                    return false;
                field.bytes = bytes.substr(at, field.value);
                at += field.value;
            } else if (field.type != kVarint) {
                return false;
            }
            fields.push_back(field);
        }
        return true;
    }

    static void writeVarint(uint64_t value, std::string& out)
    {
        for (; value >= 0x80; value >>= 7)
            out += static_cast<char>((value & 0x7f) | 0x80);
        out += static_cast<char>(value);
    }

    static void write(Field const& field, std::string& out)
    {
        writeVarint(uint64_t{field.number} << 3 | field.type, out);
        writeVarint(field.type == kBytes ? field.bytes.size() : field.value, out);
        if (field.type == kBytes)
            out += field.bytes;
    }

    std::minstd_rand random_;
};
