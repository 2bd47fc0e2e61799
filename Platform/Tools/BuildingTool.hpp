#pragma once

#include "Support/FileURL.hpp"

#include <functional>
#include <stop_token>
#include <string>

namespace corvane::Tools {

/// What the two tools that build packages have in common.

/// Runs the work so that signals stop it. A failure is printed as "NAME: error: text", status 1.
int runBuilding(const std::string& name, const std::function<void(const std::stop_token& stop)>& work);

/// @throws std::runtime_error that says why no file can be written there
void requireWritable(const FileURL& package);

} // namespace corvane::Tools
