#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Unicode text as UTF-8 in `std::string`. Input that is not valid UTF-8 is read as U+FFFD where it is broken.
namespace corvane::Text {

/// Decodes bytes as UTF-8; every maximal invalid sequence becomes one U+FFFD.
std::string decodedUTF8(std::string_view bytes);

/// Fit for a line on a terminal: control characters, and what is no UTF-8, become U+FFFD.
std::string printable(std::string_view text);

/// Without leading and trailing white space (general category Zs, and the tab).
std::string trimmingWhitespace(std::string_view text);

/// Without leading and trailing white space and line breaks (categories Z*, U+0009 to U+000D, U+0085).
std::string trimmingWhitespaceAndNewlines(std::string_view text);

/// Each scalar in its simple lower-case form.
std::string lowercased(std::string_view text);

/// True when the scalar is a letter, a mark or a number (general categories L, M and N).
bool isAlphanumeric(char32_t scalar);

/// The Unicode scalars of a text.
std::vector<char32_t> scalars(std::string_view text);

/// The pieces between the separators; empty pieces are dropped.
std::vector<std::string_view> split(std::string_view text, char separator);

/// Less-than of the canonically composed texts, scalar by scalar.
bool canonicallyPrecedes(std::string_view left, std::string_view right);

/// The order of sets and maps whose keys are the same when they are canonically the same.
struct CanonicalOrder {
    bool operator()(std::string_view left, std::string_view right) const { return canonicallyPrecedes(left, right); }
};

/// True when the texts are the same once composed.
bool canonicallyEqual(std::string_view left, std::string_view right);

/// Sorts texts by that order; those that are canonically the same stay as they stand.
void sortCanonically(std::vector<std::string>& texts);

/// The texts of a container one after another, with the separator between them.
template <class Texts>
std::string joined(const Texts& texts, std::string_view separator) {
    std::string result;
    bool isFirst = true;
    for (const auto& text : texts) {
        if (!isFirst) result += separator;
        isFirst = false;
        result += text;
    }
    return result;
}

/// Gives a text's characters as readers see them, extended grapheme clusters, one after another.
class CharacterReader {
  public:
    /// @param text must outlive the reader
    explicit CharacterReader(std::string_view text) : rest_(text) {}
    /// Nothing at the end of the text.
    std::optional<std::string_view> next();

  private:
    std::string_view rest_;
};

/// The first non-empty piece between line breaks (U+000A to U+000D, U+0085, U+2028, U+2029); the whole text if there
/// is none.
std::string firstLine(std::string_view text);

/// The rest of the first non-empty line (lines end at U+000A only) that begins with the prefix.
std::optional<std::string> firstMatchValue(std::string_view text, std::string_view prefix);

} // namespace corvane::Text
