#include "Platform/Formats/CodeResources/PathPattern.hpp"

#include "Platform/Formats/FormatError.hpp"

#include <re2/re2.h>

#include <cstdint>
#include <optional>

namespace corvane::CodeResources {
namespace {

/// Bytes that one pattern may take, compiled and with what the search remembers.
constexpr std::int64_t memoryLimit = std::int64_t{512} << 10;

bool isLetterOrDigit(char character) {
    return (character >= '0' && character <= '9') || (character >= 'A' && character <= 'Z') ||
           (character >= 'a' && character <= 'z');
}

/// Turns an extended expression into what the library takes for the same. They differ where a backslash stands: in
/// brackets it is a character like any other, and before a letter or digit it has no meaning of its own.
class Translation {
  public:
    explicit Translation(std::string_view text) : rest_(text) {}

    /// Nothing for a pattern that can be understood in several ways.
    std::optional<std::string> result() {
        while (!rest_.empty() && isClear_) {
            const char character = take();
            if (character == '\\') {
                isClear_ = !rest_.empty() && !isLetterOrDigit(take());
            } else if (character == '[') {
                translateBrackets();
            }
        }
        return isClear_ ? std::optional(result_) : std::nullopt;
    }

  private:
    char take() {
        const char character = rest_.front();
        rest_.remove_prefix(1);
        result_ += character;
        return character;
    }

    /// From behind the opening bracket on. A closing one in front is a character like any other.
    void translateBrackets() {
        if (rest_.starts_with('^')) take();
        if (rest_.starts_with(']')) take();
        while (!rest_.empty() && isClear_) {
            if (rest_.starts_with("[:")) {
                translateClass();
                continue;
            }
            isClear_ = !rest_.starts_with("[.") && !rest_.starts_with("[=");
            const char character = take();
            if (character == '\\' || character == '[') result_.insert(result_.size() - 1, 1, '\\');
            if (character == ']') return;
        }
    }

    /// "[:alpha:]" as it stands.
    void translateClass() {
        const std::size_t end = rest_.find(":]");
        isClear_ = end != std::string_view::npos;
        if (!isClear_) return;
        result_ += rest_.substr(0, end + 2);
        rest_.remove_prefix(end + 2);
    }

    std::string_view rest_;
    std::string result_;
    bool isClear_ = true;
};

re2::RE2::Options options() {
    re2::RE2::Options options;
    options.set_posix_syntax(true);
    // Names are bytes, and a line feed in one is a byte like any other.
    options.set_encoding(re2::RE2::Options::EncodingLatin1);
    options.set_one_line(true);
    options.set_dot_nl(true);
    options.set_never_capture(true);
    options.set_max_mem(memoryLimit);
    options.set_log_errors(false);
    return options;
}

} // namespace

PathPattern::PathPattern(const std::string& text, const std::string& name) {
    const auto translated = Translation(text).result();
    if (!translated) throw FormatError(name + ": rule " + text + ": the pattern can be understood in several ways");
    expression_ = std::make_unique<re2::RE2>(*translated, options());
    if (!expression_->ok()) {
        throw FormatError(name + ": rule " + text + ": the pattern is none: " + expression_->error());
    }
}

PathPattern::PathPattern(PathPattern&& other) noexcept = default;
PathPattern& PathPattern::operator=(PathPattern&& other) noexcept = default;
PathPattern::~PathPattern() = default;

bool PathPattern::isFoundIn(std::string_view path) const {
    const re2::StringPiece piece(path.data(), path.size());
    return expression_->Match(piece, 0, path.size(), re2::RE2::UNANCHORED, nullptr, 0);
}

std::size_t PathPattern::size() const { return static_cast<std::size_t>(expression_->ProgramSize()); }

} // namespace corvane::CodeResources
