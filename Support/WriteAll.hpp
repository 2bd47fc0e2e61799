#pragma once

#include <string_view>

namespace corvane {

/// Writes all bytes to a descriptor, however often the system takes only some. False, with the reason in `errno`, when
/// it refuses.
bool writeAll(int descriptor, std::string_view bytes);

} // namespace corvane
