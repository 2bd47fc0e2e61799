#pragma once

#include "Services/PackageComponentDescriptor.hpp"
#include "Services/PackagingPipeline/Context.hpp"

#include <optional>
#include <string>
#include <vector>

namespace corvane::Packaging {

/// What stands beside a finished package: the bundle inventory when the job asks for it, and the change report when
/// components were removed. They are written into the work folder, and moved to their final names once the package is
/// at its own.
class SideFiles {
  public:
    /// Writes them.
    /// @param expanded the candidate's expansion, when there is one already
    /// @throws PipelineError, LaunchError, CancellationError, XML::Error, PropertyList::Error, FileError
    SideFiles(const Context& context, const FileURL& candidate, const std::optional<FileURL>& expanded,
              const FileURL& outputURL, const std::vector<PackageComponentDescriptor>& removedComponents);

    /// @throws FileError
    void place(const Context& context) const;

  private:
    struct SideFile {
        std::string title;
        FileURL written;
        FileURL destination;
    };
    std::vector<SideFile> files_;
};

} // namespace corvane::Packaging
