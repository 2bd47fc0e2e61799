#pragma once

#include "Support/FileURL.hpp"

#include <functional>
#include <optional>
#include <string>

/// What the tools that attach disk images ask and say alike.
namespace corvane::Tools {

/// Shows a prompt and takes a line; nothing when the input ends before.
using LineSource = std::function<std::optional<std::string>(const std::string& prompt)>;

/// Shows a licence, without what could steer a terminal, and asks. @throws ConsentError when nobody answers
bool agreesToLicence(const std::string& licence, const LineSource& ask);

/// "Password of vendor.dmg: "
std::string passwordPrompt(const FileURL& image);

/// Wrong passwords after which a user at a terminal is asked no more.
constexpr unsigned passwordTries = 3;

/// One line, without its end, that says why an attach failed; it names the image unless the reason does.
std::string attachFailure(const FileURL& image, const std::exception& error);

} // namespace corvane::Tools
