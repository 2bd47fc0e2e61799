#pragma once

#include <string>

namespace corvane::Tools {

/// Asks for a passphrase on the process's terminal, which shows nothing of what is typed. A signal that ends the
/// process meanwhile finds the terminal as it was.
/// @throws std::runtime_error when there is no terminal, or the line ends before a line feed
std::string askForPassphrase(const std::string& prompt);

} // namespace corvane::Tools
