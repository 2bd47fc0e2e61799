#pragma once

#include "Platform/Formats/CodeSignature/Requirement.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace corvane::CodeSignature {

/// Most levels of one requirement, and largest forms of it in bytes. Real ones have a dozen levels and some hundred
/// bytes.
constexpr int requirementDepthLimit = 256;
constexpr std::size_t requirementSizeLimit = std::size_t{1} << 18;

/// What a value must be like. The numbers are those of the compiled form.
struct RequirementMatch {
    enum class Operation : std::uint32_t {
        exists = 0,
        equal = 1,
        contains = 2,
        begins = 3,
        ends = 4,
        less = 5,
        greater = 6,
        lessOrEqual = 7,
        greaterOrEqual = 8,
        on = 9,
        before = 10,
        after = 11,
        onOrBefore = 12,
        onOrAfter = 13,
        absent = 14,
    };

    Operation operation = Operation::exists;
    /// For `equal` to `greaterOrEqual`.
    std::string text = {};
    /// For `on` to `onOrAfter`.
    Time time = {};
};

/// A place in a chain: 0 is the leaf, 1 its issuer; -1 is the root, -2 what it has issued.
using CertificateSlot = std::int32_t;

struct Requirement::Expression {
    struct Constant {
        bool value;
    };
    struct AllOf {
        std::vector<Expression> parts;
    };
    struct AnyOf {
        std::vector<Expression> parts;
    };
    struct Not {
        std::shared_ptr<const Expression> part;
    };
    struct Identifier {
        std::string identifier;
    };
    struct DirectoryHash {
        std::string cdhash;
    };
    struct Platform {
        std::int32_t number;
    };
    struct Notarized {};
    struct InfoValue {
        std::string key;
        RequirementMatch match;
    };
    struct EntitlementValue {
        std::string key;
        RequirementMatch match;
    };
    /// Signed by Apple itself.
    struct AppleAnchor {};
    /// Signed by anybody to whom Apple's authorities gave a certificate.
    struct AppleGenericAnchor {};
    struct TrustedAnchor {};
    struct TrustedCertificate {
        CertificateSlot slot;
    };
    struct CertificateHash {
        CertificateSlot slot;
        std::string sha1;
    };
    /// A field of the subject. Object identifiers are dotted texts.
    struct CertificateField {
        CertificateSlot slot;
        std::string oid;
        RequirementMatch match;
    };
    struct CertificateExtension {
        CertificateSlot slot;
        std::string oid;
        RequirementMatch match;
    };
    struct CertificatePolicy {
        CertificateSlot slot;
        std::string oid;
        RequirementMatch match;
    };
    /// An extension that holds a time.
    struct CertificateTime {
        CertificateSlot slot;
        std::string oid;
        RequirementMatch match;
    };

    std::variant<Constant, AllOf, AnyOf, Not, Identifier, DirectoryHash, Platform, Notarized, InfoValue,
                 EntitlementValue, AppleAnchor, AppleGenericAnchor, TrustedAnchor, TrustedCertificate, CertificateHash,
                 CertificateField, CertificateExtension, CertificatePolicy, CertificateTime>
        form;
};

/// The object identifier of a field of subjects, "subject.OU"; nothing for a name that nobody here knows.
std::optional<std::string> subjectFieldOID(std::string_view field);

/// The time of a text "20210422000000Z"; nothing for any other text.
std::optional<Time> certificateTime(std::string_view text);

} // namespace corvane::CodeSignature
