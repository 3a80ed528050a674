#include "ZSqueeze.h"

#include <limits.h>
#include <zlib.h>

namespace {

// The required version of zlib's interface; any zlib 1.x has it.
constexpr char kZlibVersion[] = "1.1.4";

// Sets both blocks of a stream. zlib uses 32-bit lengths: longer blocks do not fit.
int aim(z_stream& stream, unsigned char* dest, unsigned long const* destLen,
        unsigned char const* src, unsigned long srcLen)
{
    if (dest == nullptr || destLen == nullptr || (src == nullptr && srcLen != 0))
        return Z_STREAM_ERROR;
    if (srcLen > UINT_MAX || *destLen > UINT_MAX)
        return Z_BUF_ERROR;
    stream = z_stream{};
    stream.next_in = const_cast<unsigned char*>(src);
    stream.avail_in = static_cast<unsigned int>(srcLen);
    stream.next_out = dest;
    stream.avail_out = static_cast<unsigned int>(*destLen);
    return Z_OK;
}

int lengthOrCode(int rc, unsigned long length)
{
    if (rc != Z_OK)
        return rc;
    return length > INT_MAX ? Z_BUF_ERROR : static_cast<int>(length);
}

}  // namespace

ZSqueeze_6_0::ZSqueeze_6_0()
    : source_(nullptr), sourceLength_(0), level_(Z_DEFAULT_COMPRESSION), flag_(1)
{
}

void ZSqueeze_6_0::setSource(unsigned char* data, unsigned long length)
{
    source_ = data;
    sourceLength_ = length;
}

int ZSqueeze_6_0::compress(unsigned char* dest, unsigned long* destLen, unsigned char const* src,
                           unsigned long srcLen)
{
    z_stream stream;
    int rc = aim(stream, dest, destLen, src, srcLen);
    if (rc != Z_OK)
        return rc;
    rc = deflateInit_(&stream, level_, kZlibVersion, sizeof stream);
    if (rc != Z_OK)
        return rc;
    rc = deflate(&stream, Z_FINISH);
    if (rc != Z_STREAM_END) {
        deflateEnd(&stream);
        return rc == Z_OK ? Z_BUF_ERROR : rc;
    }
    *destLen = stream.total_out;
    return deflateEnd(&stream);
}

int ZSqueeze_6_0::uncompress(unsigned char* dest, unsigned long* destLen, unsigned char const* src,
                             unsigned long srcLen)
{
    z_stream stream;
    int rc = aim(stream, dest, destLen, src, srcLen);
    if (rc != Z_OK)
        return rc;
    rc = inflateInit_(&stream, kZlibVersion, sizeof stream);
    if (rc != Z_OK)
        return rc;
    rc = inflate(&stream, Z_FINISH);
    if (rc != Z_STREAM_END) {
        inflateEnd(&stream);
        // squeeze() never writes a stream that needs a preset dictionary; zlib's positive code for
        // it would look like a length.
        return rc == Z_OK ? Z_BUF_ERROR : rc == Z_NEED_DICT ? Z_DATA_ERROR : rc;
    }
    *destLen = stream.total_out;
    return inflateEnd(&stream);
}

int ZSqueeze_6_0::squeeze(unsigned char* dest, unsigned long destCapacity)
{
    unsigned long length = destCapacity;
    int const rc = compress(dest, &length, source_, sourceLength_);
    return lengthOrCode(rc, length);
}

int ZSqueeze_6_0::unsqueeze(unsigned char* dest, unsigned long destCapacity)
{
    unsigned long length = destCapacity;
    int const rc = uncompress(dest, &length, source_, sourceLength_);
    return lengthOrCode(rc, length);
}
