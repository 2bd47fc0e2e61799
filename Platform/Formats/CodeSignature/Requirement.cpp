#include "Platform/Formats/CodeSignature/Requirement.hpp"

#include "Platform/Formats/CodeSignature/RequirementExpression.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Platform/Trust/AppleMarkers.hpp"
#include "Support/Text.hpp"
#include "Support/UTCTime.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <compare>
#include <cstring>

namespace corvane::CodeSignature {
namespace {

using Expression = Requirement::Expression;
using Operation = RequirementMatch::Operation;

/// Bytes that the answer to one requirement may look at: each of its conditions may ask about a large value anew.
constexpr std::uint64_t effortLimit = std::uint64_t{1} << 28;

bool isDigit(char character) { return character >= '0' && character <= '9'; }

/// Takes the digits that a text begins with, but for zeros in front.
std::string_view takeNumber(std::string_view& text) {
    const std::size_t size = std::min(text.size(), text.find_first_not_of("0123456789"));
    std::string_view number = text.substr(0, size);
    text.remove_prefix(size);
    number.remove_prefix(std::min(number.size(), number.find_first_not_of('0')));
    return number;
}

/// The order of versions: runs of digits count by their value, so "1.10" comes behind "1.9".
std::strong_ordering compareVersions(std::string_view left, std::string_view right) {
    while (!left.empty() && !right.empty()) {
        std::strong_ordering order = std::strong_ordering::equal;
        if (isDigit(left[0]) && isDigit(right[0])) {
            const std::string_view leftNumber = takeNumber(left);
            const std::string_view rightNumber = takeNumber(right);
            order = leftNumber.size() <=> rightNumber.size();
            if (order == 0) order = leftNumber <=> rightNumber;
        } else {
            order = static_cast<unsigned char>(left[0]) <=> static_cast<unsigned char>(right[0]);
            left.remove_prefix(1);
            right.remove_prefix(1);
        }
        if (order != 0) return order;
    }
    return left.size() <=> right.size();
}

bool matches(const RequirementMatch& match, std::string_view text) {
    switch (match.operation) {
    case Operation::exists:
        return true;
    case Operation::equal:
        return text == match.text;
    case Operation::contains:
        // The library's own search takes time by the product of the lengths.
        return ::memmem(text.data(), text.size(), match.text.data(), match.text.size()) != nullptr;
    case Operation::begins:
        return text.starts_with(match.text);
    case Operation::ends:
        return text.ends_with(match.text);
    case Operation::less:
        return compareVersions(text, match.text) < 0;
    case Operation::greater:
        return compareVersions(text, match.text) > 0;
    case Operation::lessOrEqual:
        return compareVersions(text, match.text) <= 0;
    case Operation::greaterOrEqual:
        return compareVersions(text, match.text) >= 0;
    default:
        return false;
    }
}

bool matches(const RequirementMatch& match, Time time) {
    switch (match.operation) {
    case Operation::exists:
        return true;
    case Operation::on:
        return time == match.time;
    case Operation::before:
        return time < match.time;
    case Operation::after:
        return time > match.time;
    case Operation::onOrBefore:
        return time <= match.time;
    case Operation::onOrAfter:
        return time >= match.time;
    default:
        return false;
    }
}

bool matches(const RequirementMatch& match, const PropertyList::Value& value) {
    if (match.operation == Operation::absent) return false;
    if (const auto* text = value.get<std::string>()) return matches(match, *text);
    // Any one of several values will do.
    if (const auto* values = value.get<PropertyList::Array>()) {
        return std::any_of(values->begin(), values->end(), [&](const auto& each) { return matches(match, each); });
    }
    if (const auto* date = value.get<PropertyList::Date>(); date != nullptr && std::abs(date->seconds) < 1e12) {
        const auto seconds = static_cast<std::int64_t>(std::floor(date->seconds));
        return matches(match, Time(std::chrono::seconds(seconds + PropertyList::secondsFrom1970To2001)));
    }
    // What is switched off counts as not there, yet not as absent either.
    const bool* flag = value.get<bool>();
    return match.operation == Operation::exists && (flag == nullptr || *flag);
}

template <class Value>
bool matches(const RequirementMatch& match, const std::optional<Value>& value) {
    return value ? matches(match, *value) : match.operation == Operation::absent;
}

/// Bytes that a comparison with a value looks at, and one for each value in it.
std::uint64_t effort(const PropertyList::Value& value) {
    if (const auto* text = value.get<std::string>()) return 1 + text->size();
    std::uint64_t sum = 1;
    if (const auto* values = value.get<PropertyList::Array>()) {
        for (const PropertyList::Value& each : *values) sum += effort(each);
    }
    return sum;
}

/// The certificates of a chain, root included, of which each has issued the one before: without a trusted root, nobody
/// has checked that, and whoever signs may pass on certificates that are not theirs.
struct Links {
    std::vector<const Certificate*> certificates;
    /// Whether the last one is a root.
    bool endsAtRoot = false;

    /// @param chain null for none; must outlive this
    explicit Links(const CertificateChain* chain) {
        if (chain == nullptr || chain->certificates.empty()) return;
        for (const Certificate& certificate : chain->certificates) {
            if (!add(certificate)) return;
        }
        const Certificate& last = *certificates.back();
        // A root that signs by itself is leaf and anchor in one.
        const bool isAnchor = chain->anchor && last == chain->anchor->certificate;
        if (chain->anchor && !isAnchor) {
            endsAtRoot = add(chain->anchor->certificate);
        } else {
            endsAtRoot = isAnchor || last.isIssuedBy(last);
        }
    }

  private:
    bool add(const Certificate& next) {
        if (!certificates.empty() && !certificates.back()->isIssuedBy(next)) return false;
        certificates.push_back(&next);
        return true;
    }
};

/// Answers one requirement about one subject.
class Evaluation {
  public:
    explicit Evaluation(const RequirementSubject& subject) : subject_(subject), links_(subject.chain) {}

    bool isMet(const Expression& expression) const { return std::visit(*this, expression.form); }

    bool operator()(const Expression::Constant& wanted) const { return wanted.value; }
    bool operator()(const Expression::AllOf& all) const {
        return std::all_of(all.parts.begin(), all.parts.end(), [&](const auto& part) { return isMet(part); });
    }
    bool operator()(const Expression::AnyOf& any) const {
        return std::any_of(any.parts.begin(), any.parts.end(), [&](const auto& part) { return isMet(part); });
    }
    bool operator()(const Expression::Not& wanted) const { return !isMet(*wanted.part); }

    bool operator()(const Expression::Identifier& wanted) const { return subject_.identifier == wanted.identifier; }
    bool operator()(const Expression::DirectoryHash& wanted) const {
        const auto& hashes = subject_.cdhashes;
        return std::find(hashes.begin(), hashes.end(), wanted.cdhash) != hashes.end();
    }
    bool operator()(const Expression::Platform& wanted) const { return subject_.platform == wanted.number; }
    bool operator()(const Expression::Notarized&) const { return subject_.isNotarized; }
    bool operator()(const Expression::InfoValue& wanted) const {
        return matchesKey(subject_.infoPropertyList, wanted.key, wanted.match);
    }
    bool operator()(const Expression::EntitlementValue& wanted) const {
        return matchesKey(subject_.entitlements, wanted.key, wanted.match);
    }

    bool operator()(const Expression::AppleAnchor&) const {
        const Certificate* authority = certificate(1);
        return owner() == AnchorOwner::apple && authority != nullptr &&
               authority->commonName() == AppleMarkers::systemAuthorityName;
    }
    bool operator()(const Expression::AppleGenericAnchor&) const { return owner() == AnchorOwner::apple; }
    bool operator()(const Expression::TrustedAnchor&) const { return owner() != AnchorOwner::nobody; }
    /// Only roots are trusted for themselves.
    bool operator()(const Expression::TrustedCertificate& wanted) const {
        const Certificate* found = certificate(wanted.slot);
        return owner() != AnchorOwner::nobody && found != nullptr && found == certificate(-1);
    }
    bool operator()(const Expression::CertificateHash& wanted) const {
        const Certificate* found = certificate(wanted.slot);
        if (found == nullptr) return false;
        const bool isAnchor = subject_.chain->anchor && found == certificate(-1);
        return wanted.sha1 == (isAnchor ? subject_.chain->anchor->sha1 : found->sha1());
    }
    bool operator()(const Expression::CertificateField& wanted) const {
        const Certificate* found = certificate(wanted.slot);
        return found != nullptr && matches(wanted.match, found->subjectField(wanted.oid));
    }
    bool operator()(const Expression::CertificateExtension& wanted) const {
        const Certificate* found = certificate(wanted.slot);
        if (found == nullptr) return false;
        const bool isThere = found->hasExtension(wanted.oid);
        if (wanted.match.operation == Operation::exists) return isThere;
        if (wanted.match.operation == Operation::absent) return !isThere;
        return matches(wanted.match, found->extensionText(wanted.oid));
    }
    bool operator()(const Expression::CertificatePolicy& wanted) const {
        const Certificate* found = certificate(wanted.slot);
        if (found == nullptr) return false;
        const bool isThere = found->hasPolicy(wanted.oid);
        if (wanted.match.operation == Operation::absent) return !isThere;
        return wanted.match.operation == Operation::exists && isThere;
    }
    bool operator()(const Expression::CertificateTime& wanted) const {
        const Certificate* found = certificate(wanted.slot);
        if (found == nullptr) return false;
        if (wanted.match.operation == Operation::absent) return !found->hasExtension(wanted.oid);
        const std::optional<Time> time = certificateTime(found->extensionText(wanted.oid).value_or(""));
        return time && matches(wanted.match, *time);
    }

  private:
    void spend(std::uint64_t effort) const {
        effort_ += effort;
        if (effort_ > effortLimit) throw FormatError("requirement: the answer takes too long");
    }

    bool matchesKey(const PropertyList::Value* dictionary, const std::string& key,
                    const RequirementMatch& match) const {
        const PropertyList::Value* value = dictionary != nullptr ? dictionary->find(key) : nullptr;
        if (value == nullptr) return match.operation == Operation::absent;
        spend(effort(*value));
        return matches(match, *value);
    }

    AnchorOwner owner() const { return subject_.chain != nullptr ? subject_.chain->owner : AnchorOwner::nobody; }

    /// Null when the chain does not reach as far. Slots counted from the root need a root.
    const Certificate* certificate(CertificateSlot slot) const {
        const auto count = static_cast<std::int64_t>(links_.certificates.size());
        if (slot < 0 && !links_.endsAtRoot) return nullptr;
        const std::int64_t index = slot < 0 ? count + slot : slot;
        if (index < 0 || index >= count) return nullptr;
        const Certificate* found = links_.certificates[static_cast<std::size_t>(index)];
        spend(found->der().size());
        return found;
    }

    const RequirementSubject& subject_;
    Links links_;
    mutable std::uint64_t effort_ = 0;
};

struct SubjectField {
    std::string_view name, oid;
};

constexpr std::array subjectFields{
    SubjectField{"CN", "2.5.4.3"},
    SubjectField{"SN", "2.5.4.4"},
    SubjectField{"C", "2.5.4.6"},
    SubjectField{"L", "2.5.4.7"},
    SubjectField{"ST", "2.5.4.8"},
    SubjectField{"STREET", "2.5.4.9"},
    SubjectField{"O", "2.5.4.10"},
    SubjectField{"OU", "2.5.4.11"},
    SubjectField{"T", "2.5.4.12"},
    SubjectField{"D", "2.5.4.13"},
    SubjectField{"DC", "0.9.2342.19200300.100.1.25"},
    SubjectField{"UID", "0.9.2342.19200300.100.1.1"},
    SubjectField{"userid", "0.9.2342.19200300.100.1.1"},
    SubjectField{"email", "1.2.840.113549.1.9.1"},
};

} // namespace

std::optional<std::string> subjectFieldOID(std::string_view field) {
    constexpr std::string_view prefix = "subject.";
    if (!field.starts_with(prefix)) return std::nullopt;
    const std::string name = Text::lowercased(field.substr(prefix.size()));
    for (const SubjectField& each : subjectFields) {
        if (Text::lowercased(each.name) == name) return std::string(each.oid);
    }
    return std::nullopt;
}

std::optional<Time> certificateTime(std::string_view text) {
    constexpr std::size_t digits = 14;
    if (text.size() != digits + 1 || text.back() != 'Z' || text.find_first_not_of("0123456789") != digits) {
        return std::nullopt;
    }
    std::string parts(text.substr(0, digits));
    for (const auto& [at, separator] : {std::pair(12, ':'), {10, ':'}, {8, 'T'}, {6, '-'}, {4, '-'}}) {
        parts.insert(static_cast<std::size_t>(at), 1, separator);
    }
    const auto seconds = UTCTime::parse(parts);
    return seconds ? std::optional(Time(std::chrono::seconds(*seconds))) : std::nullopt;
}

bool Requirement::isMet(const RequirementSubject& subject) const { return Evaluation(subject).isMet(*expression_); }

} // namespace corvane::CodeSignature
