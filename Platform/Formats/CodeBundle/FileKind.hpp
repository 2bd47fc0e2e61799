#pragma once

#include "Support/FileURL.hpp"

#include <string>
#include <vector>

/// What stands at a path; what cannot be looked at is nothing. Links are followed by `leadsTo` only.
namespace corvane::FileKind {

bool exists(const FileURL& url);
bool isLink(const FileURL& url);
bool isFolder(const FileURL& url);
bool isPlainFile(const FileURL& url);
bool isExecutableFile(const FileURL& url);
bool leadsToFile(const FileURL& url);
bool leadsToFolder(const FileURL& url);

/// The names directly in a folder, sorted by their bytes. @throws FileError
std::vector<std::string> sortedNames(const FileURL& folder);

} // namespace corvane::FileKind
