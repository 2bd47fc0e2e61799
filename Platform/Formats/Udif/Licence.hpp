#pragma once

#include "Platform/Formats/Udif/Resources.hpp"

#include <optional>
#include <string>
#include <string_view>

namespace corvane::Udif {

/// The licence agreement in its default language, as UTF-8 with line feeds; empty when there is an agreement but no
/// text of a known kind. Nothing when the image asks for none.
std::optional<std::string> licenceText(const Resources& resources);

/// The text of a document in Rich Text Format, without its look. Never fails: what is no such document gives little.
std::string plainTextOfRtf(std::string_view document);

/// The old encoding of the platform.
std::string decodedMacRoman(std::string_view bytes);

} // namespace corvane::Udif
