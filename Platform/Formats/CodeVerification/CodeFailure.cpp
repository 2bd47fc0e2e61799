#include "Platform/Formats/CodeVerification/CodeFailure.hpp"

namespace corvane::CodeSignature {

std::string FileNote::text() const {
    switch (kind) {
    case Kind::added:
        return "file added: " + file.string();
    case Kind::modified:
        return "file modified: " + file.string();
    case Kind::missing:
        return "file missing: " + file.string();
    case Kind::detritus:
        break;
    }
    return "file with invalid attached data: Disallowed xattr " + attribute + " found on " + file.string();
}

} // namespace corvane::CodeSignature
