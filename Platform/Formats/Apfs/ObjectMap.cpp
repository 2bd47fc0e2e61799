#include "Platform/Formats/Apfs/ObjectMap.hpp"

#include "Platform/Formats/Apfs/Tree.hpp"
#include "Platform/Formats/FormatError.hpp"

namespace corvane::Apfs {
namespace {

constexpr std::uint32_t deletedFlag = 1;
constexpr std::uint32_t encryptedFlag = 4;
constexpr std::uint32_t headerlessFlag = 8;

[[noreturn]] void fail(std::uint64_t identifier, std::string_view problem) {
    throw FormatError(std::string(formatName) + ": object " + std::to_string(identifier) + " " + std::string(problem));
}

} // namespace

ObjectMap::ObjectMap(const ObjectReader& objects, std::uint64_t address, std::uint64_t transaction)
    : blockSize_(objects.blockSize()) {
    const Object map = objects.object(address, address, ObjectType::objectMap);
    const std::uint64_t root = map.record().u64(48);
    const auto addressOf = [](std::uint64_t child) { return child; };
    walkTree(objects, TreeKind::objectMap, root, root, addressOf, [&](const Record& key, const Record& value) {
        const std::uint64_t written = key.u64(8);
        if (written > transaction) return;
        Place& place = places_[key.u64(0)];
        if (written < place.transaction) return;
        place = {written, value.u64(8), value.u32(0), value.u32(4)};
    });
}

std::uint64_t ObjectMap::address(std::uint64_t identifier) const {
    const auto found = places_.find(identifier);
    if (found == places_.end() || (found->second.flags & deletedFlag) != 0) fail(identifier, "is not in its map");
    const Place& place = found->second;
    if ((place.flags & encryptedFlag) != 0) fail(identifier, "is encrypted, which is not supported");
    if ((place.flags & headerlessFlag) != 0) fail(identifier, "belongs to a sealed volume, which is not supported");
    if (place.size != blockSize_) fail(identifier, "has " + std::to_string(place.size) + " bytes, expected a block");
    return place.address;
}

} // namespace corvane::Apfs
