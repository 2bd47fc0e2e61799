#include "Platform/Formats/Apfs/Container.hpp"

#include "Platform/Formats/FormatError.hpp"

#include <bit>
#include <optional>

namespace corvane::Apfs {
namespace {

constexpr std::uint32_t smallestBlock = 4096;
constexpr std::uint32_t largestBlock = 65536;

constexpr std::uint64_t fusionFeature = 0x100;
/// The descriptors stand in a tree instead of in a row.
constexpr std::uint32_t scatteredDescriptors = 0x8000'0000;
constexpr std::uint32_t descriptorLimit = 65536;
constexpr std::uint32_t volumeLimit = 100;

constexpr std::uint64_t caseInsensitiveFeature = 1;
constexpr std::uint64_t normalizationInsensitiveFeature = 8;
constexpr std::uint64_t sealedFeature = 0x20;
constexpr std::uint64_t unencryptedFlag = 1;
constexpr std::uint16_t noRole = 0;
constexpr std::uint16_t userRole = 2;
constexpr std::uint16_t dataRole = 0x40;

bool hasMagic(const Record& record, std::string_view magic) { return record.bytes(32, 4) == magic; }

/// Block 0 is written now and then only; the state of every checkpoint stands in the ring of descriptors.
Object newestSuperblock(const ObjectReader& objects) {
    const Object first = objects.object(0, 1, ObjectType::containerSuperblock);
    const std::uint32_t count = first.record().u32(104);
    const std::uint64_t base = first.record().u64(112);
    if ((count & scatteredDescriptors) != 0) first.record().fail("scattered checkpoints are not supported");
    if (count > descriptorLimit) {
        first.record().fail("expected at most " + std::to_string(descriptorLimit) + " blocks of checkpoints, found " +
                            std::to_string(count));
    }
    std::optional<Object> newest;
    for (std::uint32_t index = 0; index < count; ++index) {
        Object block = objects.unchecked(base + index);
        if (!hasMagic(block.record(), "NXSB") || block.type() != ObjectType::containerSuperblock) continue;
        if (newest && block.transaction() <= newest->transaction()) continue;
        if (block.hasValidChecksum()) newest = std::move(block);
    }
    if (!newest) first.record().fail("the container has no valid checkpoint");
    return *std::move(newest);
}

Object firstUserVolume(const ObjectReader& objects, const Record& superblock, const ObjectMap& map) {
    const std::uint32_t count = superblock.u32(180);
    if (count > volumeLimit) superblock.fail("expected at most 100 volumes, found " + std::to_string(count));
    for (std::uint32_t index = 0; index < count; ++index) {
        const std::uint64_t identifier = superblock.u64(184 + 8 * index);
        if (identifier == 0) continue;
        Object volume = objects.object(map.address(identifier), identifier, ObjectType::volumeSuperblock);
        if (!hasMagic(volume.record(), "APSB")) volume.record().fail("expected a volume's superblock");
        const std::uint16_t role = volume.record().u16(964);
        if (role == noRole || role == userRole || role == dataRole) return volume;
    }
    superblock.fail("the container has no volume but those of a system");
}

std::string volumeName(const Record& volume) {
    const std::string_view field = volume.bytes(704, 256);
    return std::string(field.substr(0, field.find('\0')));
}

void requireSupported(const Record& volume) {
    const std::string name = "the volume \"" + volumeName(volume) + "\" ";
    if ((volume.u64(264) & unencryptedFlag) == 0) volume.fail(name + "is encrypted, which is not supported");
    if ((volume.u64(56) & sealedFeature) != 0) volume.fail(name + "is sealed, which is not supported");
}

} // namespace

bool isContainer(const RandomAccess& disk) {
    if (disk.size() < smallestBlock) return false;
    std::string start(40, '\0');
    disk.read(0, start);
    return hasMagic(Record(start, 0), "NXSB");
}

std::uint32_t blockSize(const RandomAccess& disk) {
    std::string start(40, '\0');
    disk.read(0, start);
    const Record record(start, 0);
    if (!hasMagic(record, "NXSB")) record.fail("expected a container's superblock");
    const std::uint32_t size = record.u32(36);
    if (size < smallestBlock || size > largestBlock || !std::has_single_bit(size)) {
        record.fail("expected blocks of 4096 to 65536 bytes, found " + std::to_string(size));
    }
    return size;
}

VolumeState readVolumeState(const ObjectReader& objects) {
    const Object superblock = newestSuperblock(objects);
    const Record container = superblock.record();
    if ((container.u64(64) & fusionFeature) != 0) container.fail("Fusion drives are not supported");
    const std::uint64_t transaction = superblock.transaction();
    const ObjectMap map(objects, container.u64(160), transaction);

    const Object object = firstUserVolume(objects, container, map);
    const Record volume = object.record();
    requireSupported(volume);
    VolumeState state{.name = volumeName(volume),
                      .hasHashedNames =
                          (volume.u64(56) & (caseInsensitiveFeature | normalizationInsensitiveFeature)) != 0,
                      .rootIdentifier = volume.u64(136),
                      .map = ObjectMap(objects, volume.u64(128), transaction)};
    state.root = state.map.address(state.rootIdentifier);
    return state;
}

} // namespace corvane::Apfs
