#pragma once

#include <map>
#include <string>
#include <string_view>

namespace corvane {

namespace ExtendedAttributes {

constexpr const char* finderInfo = "com.apple.FinderInfo";
constexpr const char* resourceFork = "com.apple.ResourceFork";

} // namespace ExtendedAttributes

/// An AppleDouble file: the attributes of another file by their names, Finder information and resource fork among them.
/// What says nothing is not there: Finder information of zeros, a resource fork that is empty or left blank.
struct AppleDouble {
    std::map<std::string, std::string> attributes;

    /// Whether bytes begin as such a file does.
    static bool isRecognized(std::string_view bytes);
    /// @throws FormatError
    static AppleDouble parse(std::string_view bytes);
    /// As a Mac writes it: attributes sorted by name behind the Finder information, the resource fork last.
    /// @throws FormatError for Finder information of another size than 32 bytes, a name of more than 254 bytes or none,
    /// and more than 4 GiB in all
    std::string serialized() const;
};

/// Whether a value says nothing under its name, so that a Mac would not have the attribute.
bool isBlankAttribute(std::string_view name, std::string_view value);

} // namespace corvane
