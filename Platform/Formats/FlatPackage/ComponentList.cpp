#include "Platform/Formats/FlatPackage/ComponentList.hpp"

#include <map>

namespace corvane::FlatPackage {
namespace {

using PropertyList::Array;
using PropertyList::Dictionary;
using PropertyList::Value;

constexpr const char* strictKey = "BundleHasStrictIdentifier";
constexpr const char* relocatableKey = "BundleIsRelocatable";
constexpr const char* versionCheckedKey = "BundleIsVersionChecked";
constexpr const char* overwriteKey = "BundleOverwriteAction";
constexpr const char* childrenKey = "ChildBundles";
constexpr const char* pathKey = "RootRelativeBundlePath";

[[noreturn]] void fail(const std::string& problem) { throw PropertyList::Error(problem); }

const char* actionName(OverwriteAction action) {
    switch (action) {
    case OverwriteAction::none:
        return "";
    case OverwriteAction::upgrade:
        return "upgrade";
    case OverwriteAction::update:
        break;
    }
    return "update";
}

Dictionary dictionary(const BundleComponent& component) {
    Dictionary entry{{overwriteKey, {actionName(component.overwriteAction)}}, {pathKey, {component.bundle.path}}};
    if (component.hasStrictIdentifier) entry.emplace(strictKey, Value{true});
    if (component.isRelocatable) entry.emplace(relocatableKey, Value{true});
    if (component.isVersionChecked) entry.emplace(versionCheckedKey, Value{true});
    return entry;
}

/// The value of a key when it has the type; nothing when there is no such key.
template <class Type>
const Type* get(const Value& entry, const char* key) {
    const Value* value = entry.find(key);
    if (value != nullptr && value->get<Type>() == nullptr) fail(std::string(key) + " has a value of the wrong type");
    return value != nullptr ? value->get<Type>() : nullptr;
}

bool flag(const Value& entry, const char* key) {
    const bool* value = get<bool>(entry, key);
    return value != nullptr && *value;
}

OverwriteAction action(const Value& entry) {
    const auto* name = get<std::string>(entry, overwriteKey);
    if (name == nullptr) return OverwriteAction::none;
    for (const auto known : {OverwriteAction::none, OverwriteAction::upgrade, OverwriteAction::update}) {
        if (*name == actionName(known)) return known;
    }
    fail(std::string(overwriteKey) + " is neither \"upgrade\" nor \"update\": \"" + *name + "\"");
}

class ListReader {
  public:
    void read(const Array& entries) {
        for (const Value& entry : entries) {
            add(entry);
            const auto* children = get<Array>(entry, childrenKey);
            if (children == nullptr) continue;
            for (const Value& child : *children) {
                add(child);
                if (child.find(childrenKey) != nullptr) fail(std::string(childrenKey) + " within each other");
            }
        }
    }

    std::vector<BundleComponent> described(const std::vector<Bundle>& bundles) const {
        std::vector<BundleComponent> components;
        for (const Bundle& bundle : bundles) {
            const auto found = rules_.find(bundle.path);
            if (found == rules_.end()) continue;
            components.push_back(found->second);
            components.back().bundle = bundle;
        }
        return components;
    }

  private:
    void add(const Value& entry) {
        if (entry.get<Dictionary>() == nullptr) fail("expected a dictionary for every bundle");
        const auto* path = get<std::string>(entry, pathKey);
        if (path == nullptr) fail("a bundle has no " + std::string(pathKey));
        for (const char* key : {"BundlePreInstallScriptPath", "BundlePostInstallScriptPath"}) {
            if (entry.find(key) != nullptr) fail(*path + ": scripts of single bundles are not supported");
        }
        rules_.insert_or_assign(*path, BundleComponent{.hasStrictIdentifier = flag(entry, strictKey),
                                                       .isRelocatable = flag(entry, relocatableKey),
                                                       .isVersionChecked = flag(entry, versionCheckedKey),
                                                       .overwriteAction = action(entry)});
    }

    /// Without the bundle, by its path.
    std::map<std::string, BundleComponent> rules_;
};

} // namespace

std::vector<BundleComponent> defaultComponents(const std::vector<Bundle>& bundles) {
    std::vector<BundleComponent> components;
    for (const Bundle& bundle : bundles) {
        const bool isOutermost = !bundle.isNested;
        components.push_back({.bundle = bundle,
                              .hasStrictIdentifier = bundle.isApplication(),
                              .isRelocatable = isOutermost && bundle.isApplication(),
                              .isVersionChecked = isOutermost,
                              .overwriteAction = isOutermost ? OverwriteAction::upgrade : OverwriteAction::none});
    }
    return components;
}

Value makeComponentList(const std::vector<BundleComponent>& components) {
    Array list;
    for (const BundleComponent& component : components) {
        if (!component.bundle.isNested) {
            list.push_back({dictionary(component)});
            continue;
        }
        auto& outermost = std::get<Dictionary>(list.back().content);
        auto& children = outermost.try_emplace(childrenKey, Value{Array{}}).first->second;
        std::get<Array>(children.content).push_back({dictionary(component)});
    }
    return {std::move(list)};
}

std::vector<BundleComponent> listedComponents(const Value& list, const std::vector<Bundle>& bundles) {
    const auto* entries = list.get<Array>();
    if (entries == nullptr) fail("expected an array of bundles");
    ListReader reader;
    reader.read(*entries);
    return reader.described(bundles);
}

} // namespace corvane::FlatPackage
