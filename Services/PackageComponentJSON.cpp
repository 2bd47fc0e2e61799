#include "Services/PackageComponentJSON.hpp"

#include "Support/Text.hpp"

namespace corvane {

JSONValue encoded(const PackageComponentDescriptor& component) {
    return {{"archiveName", Text::decodedUTF8(component.archiveName)},
            {"identifier", component.identifier},
            {"version", component.version},
            {"installLocation", component.installLocation},
            {"scripts", component.scripts}};
}

JSONValue encoded(const std::vector<PackageComponentDescriptor>& components) {
    JSONValue list = JSONValue::array();
    for (const PackageComponentDescriptor& component : components) list.push_back(encoded(component));
    return list;
}

PackageComponentDescriptor decodedComponent(const JSONValue& object) {
    PackageComponentDescriptor component;
    object.at("archiveName").get_to(component.archiveName);
    object.at("identifier").get_to(component.identifier);
    object.at("version").get_to(component.version);
    object.at("installLocation").get_to(component.installLocation);
    object.at("scripts").get_to(component.scripts);
    return component;
}

} // namespace corvane
