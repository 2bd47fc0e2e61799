#include "Platform/Formats/Xar/Decoders.hpp"

#include "Platform/Formats/Bzip2/Reader.hpp"
#include "Platform/Formats/Gzip/Reader.hpp"
#include "Platform/Formats/Lzma/Reader.hpp"

#include <stdexcept>

namespace corvane::Xar {

std::unique_ptr<ByteSource> makeDecoder(Encoding encoding, ByteSource& encoded) {
    switch (encoding) {
    case Encoding::zlib:
        return std::make_unique<Gzip::Reader>(encoded, Gzip::Framing::either);
    case Encoding::bzip2:
        return std::make_unique<Bzip2::Reader>(encoded);
    case Encoding::lzma:
    case Encoding::xz:
        return std::make_unique<Lzma::Reader>(encoded, Lzma::Container::either);
    case Encoding::stored:
        break;
    }
    throw std::logic_error("stored data need no decoder");
}

} // namespace corvane::Xar
