#pragma once

#include "Platform/Mounts/MountRegistry.hpp"
#include "Support/FileURL.hpp"

#include <optional>
#include <stdexcept>
#include <stop_token>
#include <string>

namespace corvane {

/// The user did not give what the image demands.
class ConsentError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// Whom an attach asks for what the image demands of its user.
class MountConsent {
  public:
    MountConsent() = default;
    MountConsent(const MountConsent&) = delete;
    MountConsent& operator=(const MountConsent&) = delete;
    virtual ~MountConsent() = default;

    /// A password for an encrypted image. @param failures how many were wrong so far
    /// @throws ConsentError when there is none, or no other; CancellationError
    virtual std::string password(const FileURL& image, unsigned failures) = 0;
    /// Whether the user agrees to a licence. @throws ConsentError when nobody answers, CancellationError
    virtual bool agrees(const std::string& licence) = 0;
};

/// Makes the volume of a disk image appear at a folder, whole or not at all, and keeps a record of it. The image's
/// checksums are verified, and a genuine notarization ticket in its signature is kept for those who judge what is on
/// it.
/// @param mountPoint an empty folder that no other image uses, or one to be made; absent: a new folder named like the
///        volume below ${XDG_STATE_HOME:-~/.local/state}/corvane/volumes
/// @throws FormatError, FileError, ConsentError, CancellationError
MountRecord attach(const FileURL& image, const std::optional<FileURL>& mountPoint, MountConsent& consent,
                   const std::stop_token& stop);

/// Empties the folder of a mount, whatever modes its folders have, removes it where the attach made it, and drops the
/// record. @param force passes over what cannot be removed
/// @throws FileError
void detach(const MountRecord& record, bool force);

} // namespace corvane
