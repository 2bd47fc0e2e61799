#pragma once

#include <string>
#include <string_view>

namespace corvane {

/// The MD5 of the bytes as 32 lower-case hexadecimal digits, as package databases record it. It tells files apart that
/// nobody made alike on purpose, and proves nothing.
std::string hexadecimalMD5(std::string_view bytes);

} // namespace corvane
