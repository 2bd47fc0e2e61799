#include "Support/UUID.hpp"

#include <uuid/uuid.h>

namespace corvane {

std::string makeUUID() {
    uuid_t value;
    uuid_generate_random(value);
    std::string text(36, '\0');
    uuid_unparse_upper(value, text.data());
    return text;
}

} // namespace corvane
