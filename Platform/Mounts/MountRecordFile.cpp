#include "Platform/Mounts/MountRecordFile.hpp"

#include "Support/PropertyList.hpp"

#include <limits>

namespace corvane {
namespace {

using PropertyList::Array;
using PropertyList::Data;
using PropertyList::Dictionary;
using PropertyList::Value;

/// Disks of one image, and numbers of devices, are far from it.
constexpr std::uint64_t deviceLimit = 1'000'000;

/// Numbers of files may use all bits.
Value number(std::uint64_t value) {
    if (value <= std::uint64_t{std::numeric_limits<std::int64_t>::max()}) return {static_cast<std::int64_t>(value)};
    return {value};
}

/// Paths are any bytes, which text in XML cannot hold.
Value path(const FileURL& url) { return {Data{url.string()}}; }

/// Reads the values of a dictionary; one that is missing, or of another type, makes it no record.
class Reader {
  public:
    explicit Reader(const Value& dictionary) : dictionary_(dictionary) {}

    template <class Type>
    const Type& get(std::string_view key) const {
        const Value* value = dictionary_.find(key);
        if (value == nullptr || value->get<Type>() == nullptr) throw PropertyList::Error("no record");
        return *value->get<Type>();
    }
    std::uint64_t number(std::string_view key, std::uint64_t limit = std::numeric_limits<std::uint64_t>::max()) const {
        const Value* value = dictionary_.find(key);
        if (value != nullptr && value->get<std::uint64_t>() != nullptr && *value->get<std::uint64_t>() <= limit) {
            return *value->get<std::uint64_t>();
        }
        const std::int64_t small = get<std::int64_t>(key);
        if (small < 0 || static_cast<std::uint64_t>(small) > limit) throw PropertyList::Error("no record");
        return static_cast<std::uint64_t>(small);
    }
    FileURL path(std::string_view key) const { return get<Data>(key).bytes; }

  private:
    const Value& dictionary_;
};

Value list(const DiskEntity& entity) {
    return {Dictionary{{"content-hint", {entity.contentHint}},
                       {"disk", number(entity.disk)},
                       {"mounted", {entity.isMounted}},
                       {"slice", number(entity.slice)}}};
}

DiskEntity entity(const Value& list) {
    const Reader reader(list);
    return {.contentHint = reader.get<std::string>("content-hint"),
            .disk = static_cast<unsigned>(reader.number("disk", deviceLimit)),
            .slice = static_cast<unsigned>(reader.number("slice", deviceLimit)),
            .isMounted = reader.get<bool>("mounted")};
}

} // namespace

std::string serializedMountRecord(const MountRecord& record) {
    Array entities;
    for (const DiskEntity& entity : record.entities) entities.push_back(list(entity));
    return PropertyList::serializedXML({Dictionary{{"block-count", number(record.blockCount)},
                                                   {"device", number(record.device)},
                                                   {"encrypted", {record.isEncrypted}},
                                                   {"entities", {std::move(entities)}},
                                                   {"folder-birth", number(record.folder.birth)},
                                                   {"folder-device", number(record.folder.device)},
                                                   {"folder-mode", number(record.folderMode)},
                                                   {"folder-number", number(record.folder.number)},
                                                   {"image-kind", {record.imageKind}},
                                                   {"image-path", path(record.imagePath)},
                                                   {"mount-point", path(record.mountPoint)},
                                                   {"owns-folder", {record.ownsFolder}}}});
}

std::optional<MountRecord> parseMountRecord(std::string_view bytes) {
    try {
        const Value list = PropertyList::parse(bytes, "record");
        const Reader reader(list);
        MountRecord record{.device = static_cast<unsigned>(reader.number("device", deviceLimit)),
                           .imagePath = reader.path("image-path"),
                           .mountPoint = reader.path("mount-point"),
                           .folder = {.device = reader.number("folder-device"),
                                      .number = reader.number("folder-number"),
                                      .birth = reader.number("folder-birth")},
                           .ownsFolder = reader.get<bool>("owns-folder"),
                           .folderMode = static_cast<mode_t>(reader.number("folder-mode", 07777)),
                           .imageKind = reader.get<std::string>("image-kind"),
                           .isEncrypted = reader.get<bool>("encrypted"),
                           .blockCount = reader.number("block-count"),
                           .entities = {}};
        for (const Value& each : reader.get<Array>("entities")) record.entities.push_back(entity(each));
        return record;
    } catch (const PropertyList::Error&) {
        return std::nullopt;
    }
}

} // namespace corvane
