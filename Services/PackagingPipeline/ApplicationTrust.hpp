#pragma once

#include "Services/PackagingPipeline/Context.hpp"

#include <string>
#include <string_view>

namespace corvane::Packaging {

/// The vendor's application as it goes into the package.
struct VendorApplication {
    /// The bundle on the disk image; its name is that of the installed application.
    FileURL found;
    /// The bundle whose content is installed: the found one, or its normalized copy.
    FileURL working;
    std::string identifier;
    std::string version;
};

/// The one application at the root of the mounted disk image. @throws PipelineError (`invalidInput`), FileError
FileURL findApplication(const Context& context);

/// Decides whether the application may be repackaged, by its signature, Gatekeeper, and what it says of itself; the
/// step `verifyInput`. Sets the context's `keepQuarantine` when an untrusted one is let through.
/// @throws PipelineError, FileError, LaunchError, CancellationError
VendorApplication verifyApplication(Context& context, const FileURL& found);

/// True when the signature tool's standard error says that what fails the check is Finder information or a resource
/// fork of the files, not the code.
bool isForbiddenSignatureMetadataFailure(std::string_view standardError);

/// True for a text of ASCII letters, digits and the allowed characters, and at least one of them.
bool isSafe(std::string_view text, std::string_view extraAllowed);

} // namespace corvane::Packaging
