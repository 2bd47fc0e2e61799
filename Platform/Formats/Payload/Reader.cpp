#include "Platform/Formats/Payload/Reader.hpp"

#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/Gzip/Reader.hpp"
#include "Platform/Formats/Pbzx/Layout.hpp"
#include "Platform/Formats/Pbzx/Reader.hpp"

namespace corvane::Payload {
namespace {

/// The longest magic, that of cpio.
constexpr std::size_t magicSize = 6;

/// Buffers decoded ahead: enough to outlast the creation of a file.
constexpr std::size_t depth = 8;

} // namespace

Reader::Reader(ByteSource& payload) : peeking_(payload, magicSize) {
    const std::string_view front = peeking_.front();
    if (front.starts_with("\x1f\x8b")) {
        decoder_ = std::make_unique<Gzip::Reader>(peeking_);
        ahead_.emplace(*decoder_, pool_, depth);
        source_ = &*ahead_;
    } else if (front.starts_with(Pbzx::magic)) {
        decoder_ = std::make_unique<Pbzx::Reader>(peeking_);
        source_ = decoder_.get();
    } else if (front == "070707" || front == "070701" || front == "070702") {
        source_ = &peeking_;
    } else {
        throw FormatError("payload", 0, "expected a cpio archive, gzip or pbzx, found \"" + std::string(front) + "\"");
    }
}

} // namespace corvane::Payload
