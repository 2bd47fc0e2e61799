#pragma once

#include <cstdint>
#include <optional>

namespace corvane {

/// The time that the environment gives for reproducible output (SOURCE_DATE_EPOCH, seconds since 1970): no later time
/// may show in what is made. Nothing when it is not set or empty. @throws std::runtime_error when it is no number
std::optional<std::uint64_t> sourceDate();

} // namespace corvane
