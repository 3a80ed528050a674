// Compression: every block round-trips, and a damaged stream expands into any capacity exactly as
// stepwise inflating does.
#include <Z/ZSqueeze.h>
#include <stdint.h>
#include <string.h>
#include <zlib.h>

#include <string>
#include <vector>

#include "check.h"

namespace {

using Bytes = std::vector<unsigned char>;

enum Code { done = 0, dataError = -3, noRoom = -5 };

// A null pointer is rejected, even with no bytes.
unsigned char* begin(Bytes& bytes)
{
    static unsigned char none;
    return bytes.empty() ? &none : bytes.data();
}

// Expands one byte of input at a time. `out` has the maximum size of the result and is truncated to
// the actual one.
Code inflateSlowly(Bytes& in, Bytes& out)
{
    z_stream stream = {};
    check(inflateInit(&stream) == Z_OK, "inflateInit succeeds");
    stream.next_in = begin(in);
    stream.next_out = begin(out);
    stream.avail_out = static_cast<unsigned>(out.size());
    int rc = Z_OK;
    for (size_t left = in.size(); rc == Z_OK || (rc == Z_BUF_ERROR && left > 0); --left) {
        if (left == 0)
            break;
        stream.avail_in += 1;
        rc = inflate(&stream, Z_NO_FLUSH);
    }
    size_t const made = stream.total_out;
    inflateEnd(&stream);
    if (rc == Z_STREAM_END) {
        out.resize(made);
        return done;
    }
    return rc == Z_OK || rc == Z_BUF_ERROR ? noRoom : dataError;
}

void expandsAsInflated(Bytes stream, size_t room)
{
    Bytes expected(room);
    Code const code = inflateSlowly(stream, expected);
    Bytes made(room);
    ZSqueeze_6_0 squeeze;
    squeeze.setSource(begin(stream), stream.size());
    int const length = squeeze.unsqueeze(begin(made), made.size());
    if (code != done) {
        check(length < 0, "a stream that does not inflate does not expand");
        check(code == noRoom || length == dataError || length == noRoom, "the code matches");
        return;
    }
    check(length == static_cast<int>(expected.size()),
          "the expanded length equals the inflated one");
    made.resize(static_cast<size_t>(length));
    check(made == expected, "the expanded bytes equal the inflated ones");
}

}  // namespace

// The input: damages, each with a kind, a position and a byte; then the block.
extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    Choices choices(data, size);
    struct Damage {
        unsigned kind;
        unsigned place;
        unsigned char byte;
    };
    std::vector<Damage> damages(choices.below(8));
    for (Damage& damage : damages) {
        damage.kind = choices.below(5);
        damage.place = choices.byte() << 8;
        damage.place |= choices.byte();
        damage.byte = static_cast<unsigned char>(choices.byte());
    }
    unsigned const roomKind = choices.below(6);
    size_t const someRoom = choices.byte() << 4;
    std::string const rest = choices.rest();
    Bytes block(rest.begin(), rest.end());

    ZSqueeze_6_0 squeeze;
    squeeze.setSource(begin(block), block.size());
    Bytes packed(block.size() + block.size() / 100 + 64);
    int const length = squeeze.squeeze(begin(packed), packed.size());
    check(length > 0, "a buffer for the worst case suffices");
    packed.resize(static_cast<size_t>(length));
    Bytes unpacked(block.size());
    squeeze.setSource(begin(packed), packed.size());
    check(squeeze.unsqueeze(begin(unpacked), unpacked.size()) == static_cast<int>(block.size()),
          "it expands into a buffer of its exact length");
    check(unpacked == block, "it expands to its original bytes");
    Bytes tight(packed.size() - 1);
    squeeze.setSource(begin(block), block.size());
    check(squeeze.squeeze(begin(tight), tight.size()) == noRoom, "a short buffer is reported");

    for (Damage const& damage : damages) {
        size_t const at = packed.empty() ? 0 : damage.place % packed.size();
        switch (damage.kind) {
            case 0:
                if (!packed.empty())
                    packed[at] = damage.byte;
                break;
            case 1:
                if (!packed.empty())
                    packed[at] ^= static_cast<unsigned char>(1u << damage.byte % 8);
                break;
            case 2:
                packed.resize(at);
                break;
            case 3:
                packed.insert(packed.begin() + static_cast<ptrdiff_t>(at), damage.byte);
                break;
            default:  // a foreign end
                packed.resize(at);
                packed.insert(packed.end(), block.begin(), block.end());
        }
    }
    size_t const n = block.size();
    size_t const rooms[] = {n, n > 0 ? n - 1 : 0, n + 1, 0, someRoom, n * 3 + 7};
    expandsAsInflated(packed, rooms[roomKind]);
    expandsAsInflated(block, someRoom);  // any block may be taken for a stream
    return 0;
}
