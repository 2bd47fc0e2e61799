#pragma once

#include <optional>
#include <stop_token>
#include <string>
#include <string_view>

namespace corvane::Pbzx {

/// The block as one xz stream of the package tools' shape: no check, one block whose header states both its sizes,
/// preset 6. Nothing where that would not be smaller than the block itself.
/// @throws CancellationError soon after the stop is requested; std::bad_alloc
std::optional<std::string> xzStream(std::string_view block, const std::stop_token& stop);

} // namespace corvane::Pbzx
