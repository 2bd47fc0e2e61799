#pragma once

#include "Platform/Mounts/MountRegistry.hpp"

#include <optional>
#include <string>
#include <string_view>

/// How a record of an attached image is stored: a property list.
namespace corvane {

std::string serializedMountRecord(const MountRecord& record);
/// Nothing for what is no record.
std::optional<MountRecord> parseMountRecord(std::string_view bytes);

} // namespace corvane
