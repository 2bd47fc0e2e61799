#include "Platform/Formats/CodeSignature/Components.hpp"

#include "Platform/Formats/ExtendedAttributes/ExtendedAttributes.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Support/FileError.hpp"
#include "Support/FileManager.hpp"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace corvane::CodeSignature {
namespace {

/// Before the component's name in that of an attribute.
constexpr std::string_view attributePrefix = "com.apple.cs.";

constexpr auto alternateDirectories = static_cast<std::uint32_t>(Slot::alternateCodeDirectories);

constexpr std::array<std::pair<Slot, std::string_view>, 12> names{{
    {Slot::codeDirectory, "CodeDirectory"},
    {Slot::requirements, "CodeRequirements"},
    {Slot::resourceDirectory, "CodeResources"},
    {Slot::topDirectory, "CodeTopDirectory"},
    {Slot::entitlements, "CodeEntitlements"},
    {Slot::diskImage, "CodeRepSpecific"},
    {Slot::entitlementsDER, "CodeEntitlementDER"},
    {Slot::launchConstraintSelf, "LaunchConstraintSelf"},
    {Slot::launchConstraintParent, "LaunchConstraintParent"},
    {Slot::launchConstraintResponsible, "LaunchConstraintResponsible"},
    {Slot::libraryConstraint, "LibraryConstraint"},
    {Slot::signature, "CodeSignature"},
}};

/// Puts together what `load` finds under the components' names.
template <class Load>
Components collect(Load load) {
    Components components;
    const auto take = [&](Slot slot) {
        if (auto bytes = load(componentName(slot))) components.add(slot, std::move(*bytes));
    };
    for (const auto& [slot, name] : names) {
        if (slot != Slot::resourceDirectory) take(slot);
    }
    for (std::uint32_t index = 0; index < alternateCodeDirectoryLimit; ++index) {
        take(static_cast<Slot>(alternateDirectories + index));
    }
    return components;
}

} // namespace

const std::string* Components::find(Slot slot) const {
    const auto found = bytes_.find(slot);
    return found == bytes_.end() ? nullptr : &found->second;
}

Components Components::ofAttributes(const FileURL& file) {
    // A companion is read anew for each value, however large it is.
    const std::vector<std::string> present = ExtendedAttributes::names(file);
    return collect([&](const std::string& name) -> std::optional<std::string> {
        const std::string attribute = std::string(attributePrefix) + name;
        if (std::find(present.begin(), present.end(), attribute) == present.end()) return std::nullopt;
        auto bytes = ExtendedAttributes::value(file, attribute);
        if (bytes && bytes->size() > componentSizeLimit) throw FormatError("code signature: " + name + " is too large");
        return bytes;
    });
}

Components Components::ofFolder(const FileURL& folder) {
    return collect([&](const std::string& name) -> std::optional<std::string> {
        const FileURL file = folder / name;
        std::error_code error;
        const auto status = std::filesystem::symlink_status(file, error);
        if (status.type() == std::filesystem::file_type::none) throw FileError("Cannot read", file, error);
        if (!std::filesystem::exists(status)) return std::nullopt;
        // Reading a pipe would wait forever.
        if (!std::filesystem::is_regular_file(status)) throw FormatError(file.string() + ": expected a plain file");
        return FileManager::readFile(file, componentSizeLimit);
    });
}

std::string componentName(Slot slot) {
    const auto number = static_cast<std::uint32_t>(slot);
    if (number >= alternateDirectories && number < alternateDirectories + alternateCodeDirectoryLimit) {
        return "CodeRequirements-" + std::to_string(number - alternateDirectories + 1);
    }
    for (const auto& [each, name] : names) {
        if (each == slot) return std::string(name);
    }
    return {};
}

} // namespace corvane::CodeSignature
