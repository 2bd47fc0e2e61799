#include "Platform/Formats/Apfs/Object.hpp"

#include "Platform/Formats/FormatError.hpp"

namespace corvane::Apfs {
namespace {

std::string expectedOther(std::string_view what, std::uint64_t expected, std::uint64_t found) {
    return "expected an object of " + std::string(what) + " " + std::to_string(expected) + ", found " +
           std::to_string(found);
}

} // namespace

std::uint64_t checksum(std::string_view object) {
    constexpr std::uint64_t modulus = 0xFFFFFFFF;
    // Neither sum passes 64 bits within 64 KiB, so one reduction at the end will do.
    std::uint64_t first = 0;
    std::uint64_t second = 0;
    ByteCursor words(object, formatName);
    for (words.skip(8); words.remaining() > 0;) {
        first += words.u32LittleEndian();
        second += first;
    }
    const std::uint64_t low = modulus - (first + second) % modulus;
    const std::uint64_t high = modulus - (first + low) % modulus;
    return high << 32 | low;
}

Object ObjectReader::unchecked(std::uint64_t address) const {
    if (address >= blockCount()) {
        throw FormatError(std::string(formatName) + ": expected a block below " + std::to_string(blockCount()) +
                          ", found " + std::to_string(address));
    }
    const std::uint64_t place = address * blockSize_;
    std::string bytes(blockSize_, '\0');
    disk_.read(place, bytes);
    return {std::move(bytes), place};
}

Object ObjectReader::object(std::uint64_t address, std::uint64_t identifier, ObjectType type) const {
    Object object = unchecked(address);
    const Record record = object.record();
    if (!object.hasValidChecksum()) record.fail("the checksum of the object is wrong");
    if (object.type() != type) {
        record.fail(expectedOther("type", static_cast<std::uint16_t>(type), static_cast<std::uint16_t>(object.type())));
    }
    if (object.identifier() != identifier) {
        record.fail(expectedOther("number", identifier, object.identifier()));
    }
    return object;
}

} // namespace corvane::Apfs
