#include "Services/PackageComponentDescriptor.hpp"

#include "Support/Text.hpp"

namespace corvane {

JSONValue PackageComponentDescriptor::encoded() const {
    return {{"archiveName", Text::decodedUTF8(archiveName)},
            {"identifier", identifier},
            {"version", version},
            {"installLocation", installLocation},
            {"scripts", scripts}};
}

PackageComponentDescriptor PackageComponentDescriptor::decode(const JSONValue& object) {
    PackageComponentDescriptor component;
    object.at("archiveName").get_to(component.archiveName);
    object.at("identifier").get_to(component.identifier);
    object.at("version").get_to(component.version);
    object.at("installLocation").get_to(component.installLocation);
    object.at("scripts").get_to(component.scripts);
    return component;
}

} // namespace corvane
