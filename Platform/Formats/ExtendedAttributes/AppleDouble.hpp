#pragma once

#include <map>
#include <string>
#include <string_view>

namespace corvane {

/// An AppleDouble file: the attributes of another file by their names, Finder information and resource fork among them.
struct AppleDouble {
    std::map<std::string, std::string> attributes;

    /// @throws FormatError
    static AppleDouble parse(std::string_view bytes);
    /// As a Mac writes it: attributes sorted by name behind the Finder information, the resource fork last.
    std::string serialized() const;
};

} // namespace corvane
