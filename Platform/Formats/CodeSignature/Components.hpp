#pragma once

#include "Support/FileURL.hpp"

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace corvane::CodeSignature {

/// What a signature is made of, by the numbers of its format. Those below 0x1000 but for the directory itself have a
/// digest in the directory.
enum class Slot : std::uint32_t {
    codeDirectory = 0,
    infoPropertyList = 1,
    requirements = 2,
    resourceDirectory = 3,
    topDirectory = 4,
    entitlements = 5,
    diskImage = 6,
    entitlementsDER = 7,
    launchConstraintSelf = 8,
    launchConstraintParent = 9,
    launchConstraintResponsible = 10,
    libraryConstraint = 11,
    /// Five numbers from here on hold directories with other kinds of digests.
    alternateCodeDirectories = 0x1000,
    /// The CMS; empty when the code is signed ad hoc.
    signature = 0x10000,
    ticket = 0x10002,
};

constexpr std::uint32_t alternateCodeDirectoryLimit = 5;
/// Largest component that is read, in bytes.
constexpr std::uint64_t componentSizeLimit = std::uint64_t{64} << 20;

/// The components of one signature, which all come from one place. Info.plist and CodeResources of a bundle are not
/// among them: they are files of the bundle.
class Components {
  public:
    void add(Slot slot, std::string bytes) { bytes_[slot] = std::move(bytes); }
    /// Null when the signature has none; owned by this object.
    const std::string* find(Slot slot) const;
    bool isSigned() const { return find(Slot::codeDirectory) != nullptr; }

    /// Those of a plain file, which stand in its extended attributes "com.apple.cs.CodeDirectory" and so on.
    /// @throws FileError, FormatError
    static Components ofAttributes(const FileURL& file);
    /// Those that stand as files in a bundle's _CodeSignature folder. @throws FileError, FormatError
    static Components ofFolder(const FileURL& folder);

  private:
    std::map<Slot, std::string> bytes_;
};

/// The name that a component has as a file or attribute, "CodeRequirements"; empty for one that has none. Alternate
/// directories are called "CodeRequirements-1" and so on.
std::string componentName(Slot slot);

} // namespace corvane::CodeSignature
