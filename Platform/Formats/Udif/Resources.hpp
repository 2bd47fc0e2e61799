#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::Udif {

struct Resource {
    int number = 0;
    std::string name;
    std::string data;
};

/// By their types of four characters: "blkx" the block tables, "LPic" and others the licence. In the order of the list.
using Resources = std::map<std::string, std::vector<Resource>, std::less<>>;

/// Reads the property list of an image. @throws FormatError
Resources parseResources(std::string_view propertyList);

} // namespace corvane::Udif
