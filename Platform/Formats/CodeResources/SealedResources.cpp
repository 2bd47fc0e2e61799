#include "Platform/Formats/CodeResources/SealedResources.hpp"

#include "Platform/Formats/FormatError.hpp"

#include <array>

namespace corvane::CodeResources {
namespace {

constexpr std::size_t shortDigestSize = 20;

struct DigestKey {
    const char* name;
    DigestKind kind;
    std::size_t size;
};
/// A short digest comes before the long one of its kind, which replaces it.
constexpr std::array<DigestKey, 4> digestKeys = {{
    {"hash", DigestKind::sha1, 20},
    {"hash3", DigestKind::sha256, shortDigestSize},
    {"hash2", DigestKind::sha256, 32},
    {"hash4", DigestKind::sha384, 48},
}};

/// Reads the entry of one path.
class SealReader {
  public:
    SealReader(const std::string& name, const std::string& path) : name_(name), path_(path) {}

    Seal read(const PropertyList::Value& value) const {
        Seal seal;
        if (value.get<PropertyList::Data>() != nullptr) {
            seal.digests[DigestKind::sha1] = digest(value, shortDigestSize);
            return seal;
        }
        if (value.get<PropertyList::Dictionary>() == nullptr)
            fail("expected data or a dictionary, found another value");
        const auto* optional = find<bool>(value, "optional");
        seal.isOptional = optional != nullptr && *optional;
        const auto* target = find<std::string>(value, "symlink");
        const auto* requirement = find<std::string>(value, "requirement");
        seal.digests = digests(value);
        if ((target != nullptr) + (requirement != nullptr) + !seal.digests.empty() != 1) {
            fail("expected either digests, a link's target or a requirement");
        }
        if (target != nullptr) setLink(seal, *target);
        if (requirement != nullptr) setRequirement(seal, *requirement);
        return seal;
    }

  private:
    [[noreturn]] void fail(const std::string& problem) const {
        throw FormatError(name_ + ": seal of " + path_ + ": " + problem);
    }

    /// The value of a key that must be of a type, if it is there.
    template <class Type>
    const Type* find(const PropertyList::Value& value, const char* key) const {
        const PropertyList::Value* found = value.find(key);
        if (found == nullptr) return nullptr;
        const auto* content = found->get<Type>();
        if (content == nullptr) fail(std::string("the value of ") + key + " has a wrong type");
        return content;
    }

    std::string digest(const PropertyList::Value& value, std::size_t size) const {
        const auto* data = value.get<PropertyList::Data>();
        if (data == nullptr || data->bytes.size() != size) {
            fail("expected a digest of " + std::to_string(size) + " bytes, found another value");
        }
        return data->bytes;
    }

    std::map<DigestKind, std::string> digests(const PropertyList::Value& value) const {
        std::map<DigestKind, std::string> found;
        for (const DigestKey& key : digestKeys) {
            if (const auto* each = value.find(key.name)) found[key.kind] = digest(*each, key.size);
        }
        return found;
    }

    void setLink(Seal& seal, const std::string& target) const {
        if (target.empty()) fail("a link's target is empty");
        seal.kind = Seal::Kind::link;
        seal.linkTarget = target;
    }

    void setRequirement(Seal& seal, const std::string& requirement) const {
        if (requirement.empty()) fail("the requirement is empty");
        seal.kind = Seal::Kind::nestedCode;
        seal.requirement = requirement;
    }

    const std::string& name_;
    const std::string& path_;
};

const PropertyList::Dictionary& dictionary(const PropertyList::Value& list, const std::string& key,
                                           const std::string& name) {
    const PropertyList::Value* value = list.find(key);
    const auto* content = value != nullptr ? value->get<PropertyList::Dictionary>() : nullptr;
    if (content == nullptr) throw FormatError(name + ": expected a dictionary " + key + ", found none");
    return *content;
}

} // namespace

SealedResources SealedResources::parse(std::string_view bytes, const std::string& name) {
    const PropertyList::Value list = PropertyList::parse(bytes, name);
    SealedResources result;
    result.version = list.find("files2") != nullptr ? 2 : 1;
    const std::string suffix = result.version == 2 ? "2" : "";
    result.rules = ResourceRules::parse(dictionary(list, "rules" + suffix, name), name);
    if (result.version == 1) result.rules.leaveOutLinks();
    for (const auto& [path, value] : dictionary(list, "files" + suffix, name)) {
        result.files.emplace(path, SealReader(name, path).read(value));
    }
    return result;
}

} // namespace corvane::CodeResources
