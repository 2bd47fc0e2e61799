#pragma once

#include "Support/FileURL.hpp"
#include "Tests/Platform/Formats/HfsPlus/TestVolume.hpp"
#include "Tests/Platform/Formats/Udif/TestImage.hpp"

#include <string>

namespace corvane::TestSupport {

/// What stands in a folder, as the content of a volume: bytes, modes, times and links.
TestTree treeOfFolder(const FileURL& folder);
/// A compressed image of one volume with that content.
std::string imageOfFolder(const FileURL& folder, const TestImage::Options& options = {});

} // namespace corvane::TestSupport
