#include "Support/JSON.hpp"

namespace corvane {

std::string compactJSON(const JSONValue& value) {
    // A slash only ever stands inside strings, so escaping it afterwards touches nothing else.
    std::string line;
    for (const char character : value.dump()) {
        if (character == '/') line += '\\';
        line += character;
    }
    return line;
}

} // namespace corvane
