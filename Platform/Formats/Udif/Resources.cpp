#include "Platform/Formats/Udif/Resources.hpp"

#include "Platform/Formats/FormatError.hpp"
#include "Support/PropertyList.hpp"

#include <charconv>

namespace corvane::Udif {
namespace {

constexpr const char* format = "disk image";

std::string text(const PropertyList::Value& item, std::string_view key) {
    const PropertyList::Value* value = item.find(key);
    const std::string* text = value != nullptr ? value->get<std::string>() : nullptr;
    return text != nullptr ? *text : std::string();
}

Resource resource(const PropertyList::Value& item, const std::string& type) {
    const PropertyList::Value* value = item.find("Data");
    const auto* data = value != nullptr ? value->get<PropertyList::Data>() : nullptr;
    if (data == nullptr) throw FormatError(std::string(format) + ": expected data in a resource " + type);
    Resource result{0, text(item, "Name"), data->bytes};
    if (result.name.empty()) result.name = text(item, "CFName");
    const std::string number = text(item, "ID");
    std::from_chars(number.data(), number.data() + number.size(), result.number);
    return result;
}

PropertyList::Value parsed(std::string_view bytes) try {
    return PropertyList::parse(bytes, "property list");
} catch (const PropertyList::Error& error) {
    throw FormatError(std::string(format) + ": " + error.what());
}

} // namespace

Resources parseResources(std::string_view propertyList) {
    const PropertyList::Value list = parsed(propertyList);
    const PropertyList::Value* fork = list.find("resource-fork");
    const auto* types = fork != nullptr ? fork->get<PropertyList::Dictionary>() : nullptr;
    if (types == nullptr) throw FormatError(std::string(format) + ": expected resources in the property list");
    Resources resources;
    for (const auto& [type, items] : *types) {
        const auto* array = items.get<PropertyList::Array>();
        if (array == nullptr) throw FormatError(std::string(format) + ": expected a list of resources " + type);
        for (const PropertyList::Value& item : *array) resources[type].push_back(resource(item, type));
    }
    return resources;
}

} // namespace corvane::Udif
