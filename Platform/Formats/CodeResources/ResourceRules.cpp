#include "Platform/Formats/CodeResources/ResourceRules.hpp"

#include "Platform/Formats/CodeResources/PathPattern.hpp"
#include "Platform/Formats/FormatError.hpp"

#include <algorithm>
#include <array>
#include <cmath>

namespace corvane::CodeResources {
namespace {

/// What the signature itself consists of, a stapled ticket and a store's receipt, from the resource root.
constexpr std::array<const char*, 3> signatureFiles = {"_CodeSignature", "CodeResources", "_MASReceipt"};

/// The rules that seal whatever no other rule speaks of, in lists of either version.
constexpr std::string_view everything = "^.*";
constexpr std::string_view everythingInResources = "^Resources/";

/// What signing tools leave out on their own: files that the signature covers elsewhere, and what the Finder and the
/// localisation of a product leave behind. The last is that of bundles without a folder Contents.
constexpr std::array<std::string_view, 5> usualOmissions = {
    "^Info\\.plist$",
    "^PkgInfo$",
    "^(.*/)?\\.DS_Store$",
    "^Resources/.*\\.lproj/locversion.plist$",
    "^.*\\.lproj/locversion.plist$",
};

[[noreturn]] void fail(const std::string& name, const std::string& pattern, const std::string& problem) {
    throw FormatError(name + ": rule " + pattern + ": " + problem);
}

double number(const PropertyList::Value& value) {
    if (const auto* real = value.get<double>()) return *real;
    if (const auto* integer = value.get<std::int64_t>()) return static_cast<double>(*integer);
    if (const auto* large = value.get<std::uint64_t>()) return static_cast<double>(*large);
    return std::nan("");
}

} // namespace

struct ResourceRules::Rule {
    std::string text;
    PathPattern pattern;
    double weight = 1;
    bool omits = false;
    bool isNested = false;

    Rule(std::string patternText, const PropertyList::Value& value, const std::string& name)
        : text(std::move(patternText)), pattern(text, name) {
        if (const auto* seals = value.get<bool>()) {
            omits = !*seals;
        } else if (const auto* settings = value.get<PropertyList::Dictionary>()) {
            readSettings(*settings, name);
        } else {
            fail(name, text, "expected true, false or a dictionary, found another value");
        }
    }

    void readSettings(const PropertyList::Dictionary& settings, const std::string& name) {
        for (const auto& [key, value] : settings) {
            const auto* flag = value.get<bool>();
            if (key == "weight") {
                weight = number(value);
                if (!std::isfinite(weight)) fail(name, text, "expected a number as weight, found another value");
                continue;
            }
            if (key != "omit" && key != "nested" && key != "optional") continue;
            if (flag == nullptr) fail(name, text, "expected true or false for " + key + ", found another value");
            if (key == "omit") omits = *flag;
            if (key == "nested") isNested = *flag;
        }
    }

    bool precedes(const Rule& other) const {
        if (weight != other.weight) return weight > other.weight;
        if (omits != other.omits) return !omits;
        return !isNested && other.isNested;
    }

    bool isUnusualOmission() const {
        return omits && std::find(usualOmissions.begin(), usualOmissions.end(), text) == usualOmissions.end();
    }
};

ResourceRules ResourceRules::parse(const PropertyList::Dictionary& rules, const std::string& name) {
    if (rules.size() > ruleLimit) {
        throw FormatError(name + ": expected at most " + std::to_string(ruleLimit) + " rules, found " +
                          std::to_string(rules.size()));
    }
    std::vector<Rule> sorted;
    std::size_t steps = 0;
    for (const auto& [pattern, value] : rules) {
        if (pattern.size() > patternLimit) throw FormatError(name + ": a rule's pattern is too long");
        sorted.emplace_back(pattern, value, name);
        steps += sorted.back().pattern.size();
        if (steps > stepLimit) throw FormatError(name + ": the rules take too long to search with");
    }
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const Rule& left, const Rule& right) { return left.precedes(right); });
    ResourceRules result;
    result.rules_ = std::make_shared<const std::vector<Rule>>(std::move(sorted));
    result.exclusions_.assign(signatureFiles.begin(), signatureFiles.end());
    return result;
}

bool ResourceRules::isExcluded(std::string_view path) const {
    return std::any_of(exclusions_.begin(), exclusions_.end(), [&](const std::string& excluded) {
        return path.starts_with(excluded) && (path.size() == excluded.size() || path[excluded.size()] == '/');
    });
}

Treatment ResourceRules::treatment(std::string_view path) const {
    if (isExcluded(path)) return {.isExcluded = true};
    if (!rules_) return {};
    const auto rule =
        std::find_if(rules_->begin(), rules_->end(), [&](const Rule& each) { return each.pattern.isFoundIn(path); });
    if (rule == rules_->end() || rule->omits) return {};
    return {.isSealed = true, .isNested = rule->isNested};
}

bool ResourceRules::areWeak(int version) const {
    if (!rules_) return true;
    const std::string_view rest = version == 1 ? everythingInResources : everything;
    const bool sealTheRest =
        std::any_of(rules_->begin(), rules_->end(), [&](const Rule& each) { return each.text == rest && !each.omits; });
    return !sealTheRest ||
           std::any_of(rules_->begin(), rules_->end(), [](const Rule& each) { return each.isUnusualOmission(); });
}

std::size_t ResourceRules::count() const { return rules_ ? rules_->size() : 0; }

} // namespace corvane::CodeResources
