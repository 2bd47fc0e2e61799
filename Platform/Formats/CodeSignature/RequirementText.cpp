#include "Platform/Formats/CodeSignature/RequirementExpression.hpp"
#include "Platform/Formats/Digest.hpp"
#include "Platform/Formats/FormatError.hpp"

#include <algorithm>
#include <charconv>
#include <utility>

namespace corvane::CodeSignature {
namespace {

using Expression = Requirement::Expression;
using Operation = RequirementMatch::Operation;

constexpr std::string_view format = "requirement";
constexpr std::size_t sha1Size = 20;
constexpr CertificateSlot leafSlot = 0;
constexpr CertificateSlot rootSlot = -1;

struct Token {
    enum class Kind { end, word, string, hash, symbol };

    Kind kind = Kind::end;
    /// Of a string and a hash what it stands for; else as written.
    std::string text = {};
    std::size_t offset = 0;
};

[[noreturn]] void fail(std::size_t offset, const std::string& problem) { throw FormatError(format, offset, problem); }

/// Cuts a text into tokens; comments and white space are dropped.
class Lexer {
  public:
    explicit Lexer(std::string_view text) : text_(text) {}

    Token next() {
        skipBlanks();
        const std::size_t start = at_;
        if (start == text_.size()) return {.offset = start};
        if (text_[at_] == '"') return {Token::Kind::string, quoted(), start};
        if (rest().starts_with("H\"")) return {Token::Kind::hash, hash(), start};
        while (at_ < text_.size() && isOfWord(text_[at_])) ++at_;
        if (at_ > start) return {Token::Kind::word, std::string(text_.substr(start, at_ - start)), start};
        return {Token::Kind::symbol, symbol(), start};
    }

  private:
    static bool isOfWord(char character) {
        return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
               (character >= '0' && character <= '9') || character == '.' || character == '-' || character == '_';
    }

    std::string_view rest() const { return text_.substr(at_); }

    void skipBlanks() {
        for (;;) {
            at_ = std::min(text_.size(), text_.find_first_not_of(" \t\r\n", at_));
            if (rest().starts_with("//") || rest().starts_with("#")) {
                at_ = std::min(text_.size(), text_.find_first_of("\r\n", at_));
            } else if (rest().starts_with("/*")) {
                const std::size_t end = text_.find("*/", at_ + 2);
                if (end == std::string_view::npos) fail(at_, "the comment does not end");
                at_ = end + 2;
            } else {
                return;
            }
        }
    }

    /// A backslash takes the character behind it as it is.
    std::string quoted() {
        const std::size_t start = at_++;
        std::string content;
        while (at_ < text_.size() && text_[at_] != '"') {
            if (text_[at_] == '\\') ++at_;
            if (at_ < text_.size()) content += text_[at_++];
        }
        if (at_ == text_.size()) fail(start, "the string does not end");
        ++at_;
        return content;
    }

    std::string hash() {
        const std::size_t start = at_++;
        const auto bytes = fromHexadecimal(quoted());
        if (!bytes) fail(start, "expected hexadecimal digits");
        return *bytes;
    }

    std::string symbol() {
        const std::size_t size = rest().starts_with("<=") || rest().starts_with(">=") ? 2 : 1;
        at_ += size;
        return std::string(text_.substr(at_ - size, size));
    }

    std::string_view text_;
    std::size_t at_ = 0;
};

/// Reads by recursive descent: `or` binds weaker than `and`, `and` weaker than `!`.
class TextParser {
  public:
    explicit TextParser(std::string_view text) : lexer_(text), token_(lexer_.next()) {}

    Expression parse() {
        Expression whole = anyOf(0);
        if (token_.kind != Token::Kind::end) expected("the end");
        return whole;
    }

  private:
    Expression anyOf(int depth) {
        std::vector<Expression> parts;
        do parts.push_back(allOf(depth));
        while (takeWord("or"));
        return parts.size() == 1 ? std::move(parts[0]) : Expression{Expression::AnyOf{std::move(parts)}};
    }

    Expression allOf(int depth) {
        std::vector<Expression> parts;
        do parts.push_back(primary(depth));
        while (takeWord("and"));
        return parts.size() == 1 ? std::move(parts[0]) : Expression{Expression::AllOf{std::move(parts)}};
    }

    Expression primary(int depth) {
        if (depth > requirementDepthLimit) fail(token_.offset, "too many levels");
        if (takeSymbol("!")) return {Expression::Not{std::make_shared<const Expression>(primary(depth + 1))}};
        if (takeSymbol("(")) {
            Expression inner = anyOf(depth + 1);
            requireSymbol(")");
            return inner;
        }
        return condition();
    }

    Expression condition() {
        if (takeWord("always") || takeWord("true")) return {Expression::Constant{true}};
        if (takeWord("never") || takeWord("false")) return {Expression::Constant{false}};
        if (takeWord("notarized")) return {Expression::Notarized{}};
        if (takeWord("legacy")) return {Expression::Constant{false}};
        if (takeWord("anchor")) return anchor();
        if (takeWord("certificate") || takeWord("cert")) return certificate();
        if (takeWord("identifier")) return {Expression::Identifier{value()}};
        if (takeWord("cdhash")) return {Expression::DirectoryHash{sha1()}};
        if (takeWord("platform")) return platform();
        if (takeWord("info")) {
            std::string key = bracketed();
            return {Expression::InfoValue{std::move(key), match()}};
        }
        if (takeWord("entitlement")) {
            std::string key = bracketed();
            return {Expression::EntitlementValue{std::move(key), match()}};
        }
        expected("a condition");
    }

    Expression anchor() {
        if (takeWord("apple")) {
            if (takeWord("generic")) return {Expression::AppleGenericAnchor{}};
            return {Expression::AppleAnchor{}};
        }
        if (takeWord("trusted")) return {Expression::TrustedAnchor{}};
        return ofCertificate(rootSlot);
    }

    Expression certificate() {
        const CertificateSlot slot = certificateSlot();
        if (takeWord("trusted")) return {Expression::TrustedCertificate{slot}};
        return ofCertificate(slot);
    }

    CertificateSlot certificateSlot() {
        if (takeWord("leaf")) return leafSlot;
        if (takeWord("root") || takeWord("anchor")) return rootSlot;
        return number("leaf, root or a number");
    }

    Expression ofCertificate(CertificateSlot slot) {
        if (!isSymbol("[")) return {Expression::CertificateHash{slot, sha1()}};
        const std::size_t offset = token_.offset;
        const std::string element = bracketed();
        if (auto field = subjectFieldOID(element))
            return {Expression::CertificateField{slot, *std::move(field), match()}};
        const std::size_t dot = element.find('.');
        const std::string kind = element.substr(0, dot);
        std::string oid = dot == std::string::npos ? "" : element.substr(dot + 1);
        if (oid.empty() || oid.find_first_not_of("0123456789.") != std::string::npos) {
            fail(offset, "unknown part of a certificate, " + element);
        }
        if (kind == "field") return {Expression::CertificateExtension{slot, std::move(oid), match()}};
        if (kind == "policy") return {Expression::CertificatePolicy{slot, std::move(oid), match()}};
        if (kind == "timestamp") return {Expression::CertificateTime{slot, std::move(oid), match()}};
        fail(offset, "unknown part of a certificate, " + element);
    }

    Expression platform() {
        takeSymbol("=");
        return {Expression::Platform{number("a number")}};
    }

    RequirementMatch match() {
        if (takeWord("absent")) return {.operation = Operation::absent};
        if (takeSymbol("=")) return equality();
        const struct {
            const char* symbol;
            Operation ofText, ofTime;
        } comparisons[] = {
            {"<=", Operation::lessOrEqual, Operation::onOrBefore},
            {">=", Operation::greaterOrEqual, Operation::onOrAfter},
            {"<", Operation::less, Operation::before},
            {">", Operation::greater, Operation::after},
        };
        for (const auto& each : comparisons) {
            if (takeSymbol(each.symbol)) return comparison(each.ofText, each.ofTime);
        }
        // A part that is only named must be there.
        takeWord("exists");
        return {};
    }

    RequirementMatch equality() {
        const bool isOpenAtStart = takeSymbol("*");
        if (!isOpenAtStart && isWord("timestamp")) return comparison(Operation::equal, Operation::on);
        std::string text = textValue();
        const bool isOpenAtEnd = takeSymbol("*");
        if (isOpenAtStart) {
            return {.operation = isOpenAtEnd ? Operation::contains : Operation::ends, .text = std::move(text)};
        }
        return {.operation = isOpenAtEnd ? Operation::begins : Operation::equal, .text = std::move(text)};
    }

    RequirementMatch comparison(Operation ofText, Operation ofTime) {
        if (!takeWord("timestamp")) return {.operation = ofText, .text = textValue()};
        const std::size_t offset = token_.offset;
        const std::optional<Time> time = certificateTime(textValue());
        if (!time) fail(offset, "expected a time as 20210422000000Z");
        return {.operation = ofTime, .time = *time};
    }

    std::string bracketed() {
        requireSymbol("[");
        std::string content = textValue();
        requireSymbol("]");
        return content;
    }

    /// A string or a bare word, the equals sign before it may be left out.
    std::string value() {
        takeSymbol("=");
        return textValue();
    }

    std::string textValue() {
        if (token_.kind != Token::Kind::string && token_.kind != Token::Kind::word) expected("a value");
        return take().text;
    }

    std::string sha1() {
        takeSymbol("=");
        if (token_.kind != Token::Kind::hash || token_.text.size() != sha1Size) expected("H\"...\" of 20 bytes");
        return take().text;
    }

    std::int32_t number(const std::string& what) {
        std::int32_t number = 0;
        const char* const end = token_.text.data() + token_.text.size();
        const auto [stop, error] = std::from_chars(token_.text.data(), end, number);
        if (token_.kind != Token::Kind::word || error != std::errc() || stop != end) expected(what);
        take();
        return number;
    }

    bool isWord(std::string_view word) const { return token_.kind == Token::Kind::word && token_.text == word; }
    bool isSymbol(std::string_view symbol) const { return token_.kind == Token::Kind::symbol && token_.text == symbol; }

    Token take() { return std::exchange(token_, lexer_.next()); }
    bool takeWord(std::string_view word) { return isWord(word) && (take(), true); }
    bool takeSymbol(std::string_view symbol) { return isSymbol(symbol) && (take(), true); }
    void requireSymbol(const std::string& symbol) {
        if (!takeSymbol(symbol)) expected("\"" + symbol + "\"");
    }

    [[noreturn]] void expected(const std::string& what) const {
        fail(token_.offset, "expected " + what + ", found " + describe(token_));
    }

    static std::string describe(const Token& token) {
        if (token.kind == Token::Kind::end) return "the end";
        return token.kind == Token::Kind::hash ? "another hash" : "\"" + token.text + "\"";
    }

    Lexer lexer_;
    Token token_;
};

} // namespace

Requirement Requirement::parseText(std::string_view text) {
    if (text.size() > requirementSizeLimit) fail(0, "too long");
    return Requirement(std::make_shared<const Expression>(TextParser(text).parse()));
}

} // namespace corvane::CodeSignature
