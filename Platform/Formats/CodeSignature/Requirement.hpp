#pragma once

#include "Platform/Trust/CertificateChain.hpp"
#include "Support/PropertyList.hpp"

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::CodeSignature {

/// What requirements are asked about: a signed piece of code. Owned by the caller.
struct RequirementSubject {
    std::string identifier;
    /// 20 bytes each.
    std::vector<std::string> cdhashes;
    std::uint8_t platform = 0;
    /// Null when the code was signed ad hoc.
    const CertificateChain* chain = nullptr;
    /// Null when the code has none.
    const PropertyList::Value* infoPropertyList = nullptr;
    const PropertyList::Value* entitlements = nullptr;
    bool isNotarized = false;
};

/// A condition on signed code, which was written in the requirement language or compiled from it. Copies share one
/// immutable content.
class Requirement {
  public:
    /// The compiled form of one requirement, header included. An operation, comparison or field of a
    /// certificate that nobody here knows is an error; where the format marks an operation for it, it counts as false.
    /// @throws FormatError
    static Requirement parseBlob(std::string_view blob);
    /// The language's text, as sealed resources hold it: `identifier "a.b" and anchor apple generic`.
    /// @throws FormatError saying where the text breaks off
    static Requirement parseText(std::string_view text);

    /// @throws FormatError when the answer would take too long
    bool isMet(const RequirementSubject& subject) const;

    struct Expression;

  private:
    explicit Requirement(std::shared_ptr<const Expression> expression) : expression_(std::move(expression)) {}
    std::shared_ptr<const Expression> expression_;
};

/// The requirements that code brings along.
struct RequirementSet {
    /// Number of requirements of any kind.
    std::size_t count = 0;
    /// What it takes to be this code, in the eyes of its signer.
    std::optional<Requirement> designated;

    /// @param blob header included @throws FormatError
    static RequirementSet parse(std::string_view blob);
};

} // namespace corvane::CodeSignature
