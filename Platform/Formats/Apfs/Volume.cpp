#include "Platform/Formats/Apfs/Volume.hpp"

#include "Platform/Formats/AccessSource.hpp"
#include "Platform/Formats/Apfs/Hierarchy.hpp"
#include "Platform/Formats/Apfs/Stream.hpp"
#include "Platform/Formats/CompressedFile/CompressedFile.hpp"
#include "Platform/Formats/EntryName.hpp"
#include "Platform/Formats/FormatError.hpp"

#include <sys/stat.h>

#include <algorithm>

namespace corvane::Apfs {
namespace {

constexpr std::string_view linkAttribute = "com.apple.fs.symlink";
constexpr std::string_view resourceForkAttribute = "com.apple.ResourceFork";
/// Of an inode whose data an attribute holds compressed.
constexpr std::uint32_t compressedFlag = 0x20;

struct timespec time(std::int64_t nanoseconds) {
    constexpr std::int64_t second = 1'000'000'000;
    const std::int64_t fraction = (nanoseconds % second + second) % second;
    return {.tv_sec = (nanoseconds - fraction) / second, .tv_nsec = fraction};
}

[[noreturn]] void fail(const std::string& path, std::string_view problem) {
    throw FormatError(std::string(formatName) + ": \"" + path + "\" " + std::string(problem));
}

} // namespace

bool Volume::isRecognized(const RandomAccess& disk) { return isContainer(disk); }

Volume::Volume(const RandomAccess& disk)
    : disk_(disk), objects_(disk, blockSize(disk)), state_(readVolumeState(objects_)), tree_(objects_, state_) {
    walkHierarchy(tree_, [&](std::string path, const Inode& inode) {
        if (entries_.size() == volumeEntryLimit) fail(path, "is one name more than a volume may have here");
        entries_.push_back(entry(std::move(path), inode));
    });
}

VolumeEntry Volume::entry(std::string path, const Inode& inode) const {
    VolumeEntry entry{.path = std::move(path),
                      .mode = inode.mode,
                      .owner = inode.owner,
                      .group = inode.group,
                      .modified = time(inode.modified),
                      .size = 0,
                      .linkTarget = {},
                      .number = inode.number,
                      .position = position(inode)};
    if (S_ISLNK(inode.mode)) {
        entry.linkTarget = linkTarget(entry.path, inode);
        entry.size = entry.linkTarget.size();
    } else if (S_ISREG(inode.mode)) {
        const Attribute* compressed = compression(inode);
        entry.size = compressed == nullptr ? inode.size
                                           : CompressedFile::plainSize(front(*compressed, CompressedFile::headerSize));
    }
    return entry;
}

std::uint64_t Volume::position(const Inode& inode) const {
    const Attribute* fork = compression(inode) == nullptr ? nullptr : attribute(inode, resourceForkAttribute);
    const auto extents = tree_.extentsOf(fork == nullptr ? inode.stream : fork->stream);
    return extents.empty() ? 0 : extents.front().place;
}

std::string Volume::linkTarget(const std::string& path, const Inode& inode) const {
    const Attribute* link = attribute(inode, linkAttribute);
    if (link == nullptr || link->size == 0) fail(path, "is a link without a target");
    std::string target = front(*link, EntryName::pathLimit + 1);
    if (target.size() != link->size || target.find('\0') != target.size() - 1) {
        fail(path, "is a link to no path of at most " + std::to_string(EntryName::pathLimit) + " bytes");
    }
    target.pop_back();
    return target;
}

const Inode& Volume::inode(const VolumeEntry& entry) const {
    const Inode* inode = tree_.inode(entry.number);
    if (inode == nullptr) fail(entry.path, "is not on the volume");
    return *inode;
}

const Attribute* Volume::attribute(const Inode& inode, std::string_view name) const {
    const auto attributes = tree_.attributesOf(inode.number);
    const auto found = std::ranges::find(attributes, name, &Attribute::name);
    return found == attributes.end() ? nullptr : &*found;
}

const Attribute* Volume::compression(const Inode& inode) const {
    const bool isCompressed = S_ISREG(inode.mode) && (inode.flags & compressedFlag) != 0;
    return isCompressed ? attribute(inode, CompressedFile::attributeName) : nullptr;
}

std::unique_ptr<RandomAccess> Volume::content(const Attribute& attribute) const {
    if (attribute.stream == 0) return std::make_unique<PartAccess>(disk_, attribute.place, attribute.size);
    return std::make_unique<Stream>(disk_, tree_.extentsOf(attribute.stream), attribute.size);
}

std::string Volume::value(const Attribute& attribute) const {
    if (attribute.size > volumeAttributeLimit) {
        throw FormatError(std::string(formatName) + ": expected an attribute of at most 64 MiB, found " +
                          std::to_string(attribute.size) + " bytes in \"" + attribute.name + "\"");
    }
    return front(attribute, volumeAttributeLimit);
}

std::string Volume::front(const Attribute& attribute, std::uint64_t limit) const {
    std::string bytes(std::min(attribute.size, limit), '\0');
    content(attribute)->read(0, bytes);
    return bytes;
}

std::unique_ptr<ByteSource> Volume::open(const VolumeEntry& file) const {
    const Inode& inode = this->inode(file);
    if (!S_ISREG(inode.mode)) fail(file.path, "is no file");
    const Attribute* compressed = compression(inode);
    if (compressed == nullptr) {
        return std::make_unique<AccessSource>(
            std::make_unique<Stream>(disk_, tree_.extentsOf(inode.stream), inode.size));
    }
    const Attribute* fork = attribute(inode, resourceForkAttribute);
    return CompressedFile::open(value(*compressed), fork == nullptr ? nullptr : content(*fork));
}

std::map<std::string, std::string> Volume::attributes(const VolumeEntry& entry) const {
    const Inode& inode = this->inode(entry);
    const bool isCompressed = compression(inode) != nullptr;
    std::uint64_t room = volumeAttributeLimit;
    std::map<std::string, std::string> result;
    for (const Attribute& each : tree_.attributesOf(inode.number)) {
        if (each.name == linkAttribute || each.name.starts_with(systemAttributePrefix)) continue;
        if (isCompressed && (each.name == CompressedFile::attributeName || each.name == resourceForkAttribute))
            continue;
        if (each.size > room) fail(entry.path, "has attributes of more than 64 MiB");
        room -= each.size;
        if (!result.emplace(each.name, value(each)).second) {
            fail(entry.path, "has two attributes named \"" + each.name + "\"");
        }
    }
    return result;
}

} // namespace corvane::Apfs
