#include "Services/PackageSemanticValidator/Differences.hpp"

#include "Support/Text.hpp"

namespace corvane::PackageSemanticValidator {
namespace {

constexpr std::size_t shownBefore = 90;
constexpr std::size_t shownBehind = 90;
constexpr const char* ellipsis = "…";

void appendOnOneLine(std::string& text, std::string_view characters) {
    for (const char byte : characters) {
        if (byte == '\n') {
            text += "\\n";
        } else {
            text += byte;
        }
    }
}

} // namespace

PipelineError mismatch(const std::string& what, const std::string& original, const std::string& rebuilt) {
    return PipelineError::invalidInput("Recompression changed " + std::string(what) +
                                       ". Original: " + std::string(original) + ". Rebuilt: " + std::string(rebuilt));
}

std::string presence(bool isPresent) { return isPresent ? "present" : "absent"; }

std::string presence(const std::optional<FileURL>& url) { return presence(url.has_value()); }

std::pair<std::string, std::string> firstDifferenceSummary(std::string_view left, std::string_view right) {
    Text::CharacterReader leftCharacters(left);
    Text::CharacterReader rightCharacters(right);
    for (std::size_t index = 0;; ++index) {
        const auto leftCharacter = leftCharacters.next();
        const auto rightCharacter = rightCharacters.next();
        if (!leftCharacter && !rightCharacter) return {"different content", "different content"};
        if (!leftCharacter || !rightCharacter || !Text::canonicallyEqual(*leftCharacter, *rightCharacter)) {
            return {differenceSnippet(left, index), differenceSnippet(right, index)};
        }
    }
}

std::string differenceSnippet(std::string_view text, std::size_t index) {
    const std::size_t start = index > shownBefore ? index - shownBefore : 0;
    const std::size_t end = index + shownBehind;
    std::string snippet = start > 0 ? ellipsis : "";
    Text::CharacterReader characters(text);
    for (std::size_t at = 0; const auto character = characters.next(); ++at) {
        if (at == end) {
            snippet += ellipsis;
            break;
        }
        if (at >= start) appendOnOneLine(snippet, *character);
    }
    return Text::decodedUTF8(snippet);
}

} // namespace corvane::PackageSemanticValidator
