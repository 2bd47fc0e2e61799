#include "Platform/Formats/FlatPackage/PackageInfo.hpp"

#include "Platform/Formats/FlatPackage/Layout.hpp"
#include "Platform/Formats/FormatError.hpp"

namespace corvane::FlatPackage {
namespace {

/// The installer ends scripts that run longer, in seconds.
constexpr const char* scriptTimeout = "600";

void setAttributes(const XML::Node& element, const XML::Attributes& attributes) {
    for (const auto& [name, value] : attributes) element.setAttribute(name, value);
}

void appendPayload(const XML::Node& root, const PackageInfo& info) {
    setAttributes(root.appendElement("payload"), {{"numberOfFiles", std::to_string(info.numberOfFiles)},
                                                  {"installKBytes", std::to_string(info.installKBytes)}});
}

/// The path stands in front only where both versions are known.
void appendBundle(const XML::Node& root, const Bundle& bundle) {
    const XML::Node element = root.appendElement("bundle");
    const std::string path = "./" + bundle.path;
    const bool isComplete = bundle.shortVersion && bundle.version;
    if (isComplete) element.setAttribute("path", path);
    element.setAttribute("id", bundle.identifier);
    setAttributes(element, versionAttributes(bundle));
    if (!isComplete) element.setAttribute("path", path);
}

template <class Predicate>
void appendList(const XML::Node& root, const char* name, const PackageInfo& info, Predicate isListed) {
    const XML::Node list = root.appendElement(name);
    for (const BundleComponent& component : info.components) {
        if (isListed(component)) list.appendElement("bundle").setAttribute("id", component.bundle.identifier);
    }
}

/// Rules for what is nested have no effect, but for the strict identifier.
void appendLists(const XML::Node& root, const PackageInfo& info) {
    using Component = BundleComponent;
    const auto acts = [](OverwriteAction action) {
        return [action](const Component& each) { return !each.bundle.isNested && each.overwriteAction == action; };
    };
    appendList(root, "bundle-version", info,
               [](const Component& each) { return !each.bundle.isNested && each.isVersionChecked; });
    appendList(root, "upgrade-bundle", info, acts(OverwriteAction::upgrade));
    appendList(root, "update-bundle", info, acts(OverwriteAction::update));
    root.appendElement("atomic-update-bundle");
    appendList(root, "strict-identifier", info, [](const Component& each) { return each.hasStrictIdentifier; });
    appendList(root, "relocate", info,
               [](const Component& each) { return !each.bundle.isNested && each.isRelocatable; });
}

void appendScripts(const XML::Node& root, const PackageInfo& info) {
    if (!info.hasPreinstall && !info.hasPostinstall) return;
    const XML::Node scripts = root.appendElement("scripts");
    const auto append = [&](const std::string& name) {
        setAttributes(scripts.appendElement(name), {{"file", "./" + name}, {"timeout", scriptTimeout}});
    };
    if (info.hasPreinstall) append("preinstall");
    if (info.hasPostinstall) append("postinstall");
}

} // namespace

XML::Attributes versionAttributes(const Bundle& bundle) {
    XML::Attributes attributes;
    const auto add = [&](const char* name, const std::optional<std::string>& value) {
        if (value) attributes.emplace_back(name, *value);
    };
    add("CFBundleShortVersionString", bundle.shortVersion);
    add("CFBundleVersion", bundle.version);
    add("SourceVersion", bundle.sourceVersion);
    add("BuildVersion", bundle.buildVersion);
    return attributes;
}

std::string serialized(const PackageInfo& info) {
    const XML::Document document = XML::Document::make("pkg-info");
    const XML::Node root = document.root();
    setAttributes(root, {{"overwrite-permissions", "true"},
                         {"relocatable", "false"},
                         {"identifier", info.identifier},
                         {"postinstall-action", "none"},
                         {"version", info.version},
                         {"format-version", "2"},
                         {"generator-version", info.generatorVersion}});
    if (info.installLocation) root.setAttribute("install-location", *info.installLocation);
    root.setAttribute("auth", "root");
    if (info.minimumSystemVersion) root.setAttribute("minimumSystemVersion", *info.minimumSystemVersion);
    appendPayload(root, info);
    for (const BundleComponent& component : info.components) appendBundle(root, component.bundle);
    appendLists(root, info);
    appendScripts(root, info);
    layOut(root, 0);
    std::string text = documentText(document, Declaration::plain);
    // Names of files and identifiers of bundles may hold what no XML can.
    XML::Document::parse(text, "PackageInfo");
    return text;
}

PackageSummary summarize(const XML::Document& packageInfo, const std::string& name) {
    const XML::Node root = packageInfo.root();
    PackageSummary summary{.identifier = root.attribute("identifier").value_or(""),
                           .version = root.attribute("version").value_or("0")};
    if (root.name() != "pkg-info" || summary.identifier.empty()) throw FormatError(name + ": names no identifier");
    if (const auto payload = root.firstElement("payload")) {
        summary.installKBytes = payload->attribute("installKBytes").value_or("0");
    }
    for (const XML::Node& element : packageInfo.query("//bundle[@path]")) {
        const std::string path = *element.attribute("path");
        summary.bundles.push_back({.path = path.starts_with("./") ? path.substr(2) : path,
                                   .identifier = element.attribute("id").value_or(""),
                                   .shortVersion = element.attribute("CFBundleShortVersionString"),
                                   .version = element.attribute("CFBundleVersion"),
                                   .sourceVersion = element.attribute("SourceVersion"),
                                   .buildVersion = element.attribute("BuildVersion")});
    }
    return summary;
}

} // namespace corvane::FlatPackage
