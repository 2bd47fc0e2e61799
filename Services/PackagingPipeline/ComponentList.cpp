#include "Services/PackagingPipeline/ComponentList.hpp"

#include "Models/PipelineModels.hpp"
#include "Support/FileManager.hpp"
#include "Support/PropertyList.hpp"

#include <algorithm>

namespace corvane::Packaging {
namespace {

using PropertyList::Array;
using PropertyList::Dictionary;
using PropertyList::Value;

/// The value as an array of dictionaries; null when it is none.
Array* components(Value& value) {
    auto* array = std::get_if<Array>(&value.content);
    if (array == nullptr) return nullptr;
    const bool areDictionaries = std::all_of(array->begin(), array->end(),
                                             [](const Value& element) { return element.get<Dictionary>() != nullptr; });
    return areDictionaries ? array : nullptr;
}

void disableRelocation(Value& component) {
    auto& keys = std::get<Dictionary>(component.content);
    keys.insert_or_assign("BundleIsRelocatable", Value{false});
    const auto children = keys.find("ChildBundles");
    if (children == keys.end()) return;
    if (Array* bundles = components(children->second)) {
        for (Value& bundle : *bundles) disableRelocation(bundle);
    }
}

} // namespace

bool disableRelocation(const FileURL& componentPlist) {
    Value list = PropertyList::read(componentPlist);
    Array* bundles = components(list);
    if (bundles == nullptr) throw PipelineError::internalError("Unexpected component plist shape");
    if (bundles->empty()) return false;
    for (Value& bundle : *bundles) disableRelocation(bundle);
    FileManager::writeFile(componentPlist, PropertyList::serializedXML(list));
    return true;
}

} // namespace corvane::Packaging
