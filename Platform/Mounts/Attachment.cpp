#include "Platform/Mounts/Attachment.hpp"

#include "Platform/Formats/CodeSignature/Blob.hpp"
#include "Platform/Formats/CodeSignature/SuperBlob.hpp"
#include "Platform/Formats/DiskImage/VolumeExtraction.hpp"
#include "Platform/Formats/ExtendedAttributes/ExtendedAttributes.hpp"
#include "Platform/Formats/NotarizationTicket/TicketStore.hpp"
#include "Platform/Formats/Udif/EncryptedAccess.hpp"
#include "Platform/Formats/Udif/Image.hpp"
#include "Platform/Mounts/FolderClearing.hpp"
#include "Platform/Mounts/MountPoint.hpp"
#include "Support/AtomicFolder.hpp"
#include "Support/CancellationError.hpp"
#include "Support/FileManager.hpp"
#include "Support/Text.hpp"

#include <unistd.h>

namespace corvane {
namespace {

FileURL resolved(const FileURL& image) {
    std::error_code failure;
    FileURL absolute = std::filesystem::canonical(image, failure);
    if (failure) throw FileError("Cannot read", image, failure);
    return absolute;
}

std::unique_ptr<Udif::Image> unlock(const FileURL& url, MountConsent& consent) {
    for (unsigned failures = 0;; ++failures) {
        try {
            return Udif::Image::open(url, consent.password(url, failures));
        } catch (const Udif::WrongPassword&) {
        }
    }
}

/// The image, with all that it demands of its user granted.
std::unique_ptr<Udif::Image> openImage(const FileURL& url, MountConsent& consent) {
    std::unique_ptr<Udif::Image> image;
    try {
        image = Udif::Image::open(url);
    } catch (const Udif::EncryptedImage&) {
        image = unlock(url, consent);
    }
    const std::optional<std::string> licence = image->licence();
    if (licence && !consent.agrees(*licence)) throw ConsentError("the licence agreement was not accepted");
    return image;
}

void extract(const Udif::Image& image, const Volume& volume, const FileURL& folder, const std::stop_token& stop) {
    extractVolume(volume, folder, stop);
    image.verify(stop);
    checkCancellation(stop);
    // Whoever attaches an image must be able to use and to empty its folder.
    const mode_t mode = FileManager::itemStatus(folder).st_mode & 07777U;
    if (::chmod(folder.c_str(), mode | S_IRWXU) != 0) {
        throw FileError("Cannot set the mode of", folder, lastSystemError());
    }
}

/// A ticket that is not genuine is nobody's concern here: it vouches for nothing.
void keepTicket(const Udif::Image& image) {
    try {
        const std::optional<std::string> signature = image.codeSignature();
        if (!signature) return;
        const CodeSignature::Components components = CodeSignature::readSuperBlob(*signature);
        const std::string* ticket = components.find(CodeSignature::Slot::ticket);
        if (ticket != nullptr) TicketStore::ofUser().add(CodeSignature::Blob::first(*ticket).content());
    } catch (const FormatError&) {
    }
}

MountRecord record(const FileURL& url, const Udif::Image& image, const MountableVolume& volume,
                   const MountPoint& mountPoint, const FileURL& folder) {
    const auto identity = FolderIdentity::of(folder);
    if (!identity) throw FileError("Cannot examine", folder, lastSystemError());
    MountRecord record{.imagePath = url,
                       .mountPoint = mountPoint.url(),
                       .folder = *identity,
                       .ownsFolder = mountPoint.isOwn(),
                       .folderMode = mountPoint.mode(),
                       .imageKind = image.kind(),
                       .isEncrypted = image.isEncrypted(),
                       .blockCount = image.size() / 512,
                       .entities = volume.entities()};
    // Partition maps name kinds in any bytes.
    for (DiskEntity& entity : record.entities) entity.contentHint = Text::printable(entity.contentHint);
    return record;
}

/// A mount point that goes back to its owner is as empty as it came.
void removeAttributes(const FileURL& folder) {
    for (const std::string& name : ExtendedAttributes::names(folder)) ExtendedAttributes::remove(folder, name);
}

} // namespace

MountRecord attach(const FileURL& image, const std::optional<FileURL>& mountPoint, MountConsent& consent,
                   const std::stop_token& stop) {
    const FileURL url = resolved(image);
    std::optional<MountPoint> place;
    if (mountPoint) place.emplace(MountPoint::at(*mountPoint));
    const std::unique_ptr<Udif::Image> disk = openImage(url, consent);
    const MountableVolume volume(*disk);
    if (!place) place.emplace(MountPoint::ofUser(volume.volume().name()));
    AtomicFolder tree(place->url(), AtomicFolder::Destination::emptyFolder);
    extract(*disk, volume.volume(), tree.url(), stop);
    keepTicket(*disk);
    return MountRegistry::ofUser().add(record(url, *disk, volume, *place, tree.url()), [&] {
        place->requireUnchanged();
        tree.commit();
    });
}

void detach(const MountRecord& record, bool force) {
    clearFolder(record.mountPoint, record.folder, force);
    try {
        removeAttributes(record.mountPoint);
    } catch (const std::runtime_error&) {
        if (!force) throw;
    }
    MountRegistry::ofUser().remove(record, [&] {
        const auto check = [&](int result) {
            if (result != 0 && !force) throw FileError("Cannot remove", record.mountPoint, lastSystemError());
        };
        if (record.ownsFolder) {
            check(::rmdir(record.mountPoint.c_str()));
        } else {
            check(::chmod(record.mountPoint.c_str(), record.folderMode));
        }
    });
}

} // namespace corvane
