#pragma once

#include "Platform/Formats/RandomAccess.hpp"
#include "Support/FileURL.hpp"

#include <cstddef>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

/// Disk images of the kind that vendors hand out (.dmg): a trailer, a property list with tables of compressed chunks,
/// and the chunks. A file without a trailer is a disk as it is.
namespace corvane::Udif {

/// The disk in an image, decoded chunk by chunk where it is read. A few decoded chunks are kept; the memory does not
/// grow with the image. Read from front to back, it is decoded ahead on all cores. Threads may read side by side and
/// decode chunks of their own.
class Image : public RandomAccess {
  public:
    /// @throws FileError; FormatError for damaged tables and for images of a kind that is not supported, by its name;
    /// EncryptedImage when a password is needed
    static std::unique_ptr<Image> open(const FileURL& file);
    /// @param password of an encrypted image; not looked at for any other
    /// @throws WrongPassword, and as above
    static std::unique_ptr<Image> open(const FileURL& file, std::string_view password);
    /// The image that other bytes hold. @throws as above
    static std::unique_ptr<Image> open(std::unique_ptr<RandomAccess> file,
                                       std::optional<std::string_view> password = std::nullopt);

    /// Reads what has not been read yet and compares the checksums of all tables and of the whole, on all cores; what
    /// has no checksum is passed over. @throws FormatError naming the table; CancellationError
    virtual void verify(const std::stop_token& stop = {}) const = 0;

    /// The text of the licence agreement that a user must agree to before the disk may be used; absent when there is
    /// none. In UTF-8.
    virtual std::optional<std::string> licence() const = 0;
    /// The blobs of the image's own code signature; absent when it is not signed.
    virtual std::optional<std::string> codeSignature() const = 0;
    /// "UDIF read-only compressed (zlib)", "read/write": as `hdiutil info` names the kind.
    virtual std::string kind() const = 0;
    virtual bool isEncrypted() const = 0;
};

} // namespace corvane::Udif
