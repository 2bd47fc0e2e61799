#include "Platform/Formats/Gzip/Inflation.hpp"

#include "Platform/Formats/FormatError.hpp"

#include <libdeflate.h>

#include <memory>
#include <new>

namespace corvane::Gzip {
namespace {

struct FreeDecompressor {
    void operator()(libdeflate_decompressor* decompressor) const { libdeflate_free_decompressor(decompressor); }
};

} // namespace

std::string inflated(std::string_view stream, std::size_t size) {
    const std::unique_ptr<libdeflate_decompressor, FreeDecompressor> decompressor(libdeflate_alloc_decompressor());
    if (!decompressor) throw std::bad_alloc();
    std::string plain(size, '\0');
    std::size_t used = 0;
    std::size_t found = 0;
    switch (libdeflate_zlib_decompress_ex(decompressor.get(), stream.data(), stream.size(), plain.data(), size, &used,
                                          &found)) {
    case LIBDEFLATE_INSUFFICIENT_SPACE:
        throw FormatError("zlib: expected " + std::to_string(size) + " bytes, found more");
    case LIBDEFLATE_BAD_DATA:
        throw FormatError("zlib: expected deflated data and their checksum, found something else");
    default:
        break;
    }
    if (found != size) {
        throw FormatError("zlib: expected " + std::to_string(size) + " bytes, found " + std::to_string(found));
    }
    if (used != stream.size()) throw FormatError("zlib", used, "expected the end of the data, found more bytes");
    return plain;
}

} // namespace corvane::Gzip
