#pragma once

#include <string>

namespace corvane {

/// A fresh random UUID in its canonical upper-case text form (36 characters).
std::string makeUUID();

} // namespace corvane
