#pragma once

#include "Support/FileURL.hpp"

namespace corvane {

/// The executable file of this process, links resolved. A `FileError` where the system does not tell.
FileURL programFile();

} // namespace corvane
