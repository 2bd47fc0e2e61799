#pragma once

#include "Platform/Formats/CodeResources/ResourceRules.hpp"
#include "Platform/Formats/Digest.hpp"

#include <map>
#include <string>
#include <string_view>

/// The file CodeResources of a signed bundle: what belongs to the bundle, and how it is recognised.
namespace corvane::CodeResources {

/// What one path of the bundle must be.
struct Seal {
    enum class Kind { file, link, nestedCode };

    Kind kind = Kind::file;
    /// The file need not be there.
    bool isOptional = false;
    /// Digests of a file, by their kind; at least one. That of SHA-256 may be cut to its first 20 bytes.
    std::map<DigestKind, std::string> digests;
    /// The text of a link.
    std::string linkTarget;
    /// What nested code must meet, in the requirement language.
    std::string requirement;
};

struct SealedResources {
    /// 2 when the list has the newer pair of files and rules, else 1.
    int version = 2;
    ResourceRules rules;
    /// By path from the bundle's resource root, "Resources/a.txt". As they stand in the list: not to be opened unless
    /// the bundle is known to hold them.
    std::map<std::string, Seal, std::less<>> files;

    /// @param bytes of the property list
    /// @throws PropertyList::Error, FormatError
    static SealedResources parse(std::string_view bytes, const std::string& name);
};

} // namespace corvane::CodeResources
