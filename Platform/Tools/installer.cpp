// Says what a package would install. It installs nothing.

#include "Platform/Formats/FlatPackage/PackageReference.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/Xar/Archive.hpp"
#include "Platform/Formats/Xar/DataReader.hpp"
#include "Platform/Tools/Tool.hpp"
#include "Support/Text.hpp"
#include "Support/XML.hpp"

#include <optional>
#include <set>

namespace corvane::Tools {
namespace {

XML::Document documentAt(const Xar::Archive& archive, const std::string& path) {
    const Xar::Entry* entry = archive.contents().find(path);
    if (entry == nullptr || !entry->data) throw FormatError("The package has no " + path);
    Xar::DataReader reader(archive, *entry->data);
    return XML::Document::parse(readAll(reader, XML::Document::sizeLimit, path), path);
}

/// The identifier of a component; its folder is "" in a component package.
std::string componentIdentifier(const Xar::Archive& archive, const std::string& folder) {
    const XML::Document info = documentAt(archive, folder + "PackageInfo");
    const auto identifier = info.root().attribute("identifier");
    if (info.root().name() != "pkg-info" || !identifier || identifier->empty()) {
        throw FormatError(folder + "PackageInfo names no identifier");
    }
    return *identifier;
}

/// The folders of the components that a Distribution refers to, in its order. Other references lead out of the package.
std::vector<std::string> referencedFolders(const XML::Document& distribution) {
    std::vector<std::string> folders;
    std::set<std::string> known;
    for (const XML::Node& reference : distribution.query("//pkg-ref")) {
        const std::string text = Text::trimmingWhitespaceAndNewlines(reference.text());
        if (text.size() < 2 || text.front() != '#') continue;
        const std::string folder = FlatPackage::PackageReference::percentDecoded(text.substr(1)) + "/";
        if (known.insert(folder).second) folders.push_back(folder);
    }
    return folders;
}

/// The titles of choices that can be seen and have one.
std::vector<std::string> choiceTitles(const XML::Document& distribution) {
    std::vector<std::string> titles;
    for (const XML::Node& choice : distribution.query("//choice")) {
        const std::string title = choice.attribute("title").value_or("");
        if (!title.empty() && choice.attribute("visible") != "false") titles.push_back(title);
    }
    return titles;
}

std::vector<std::string> productTitles(const Xar::Archive& archive, const FileURL& package) {
    const XML::Document distribution = documentAt(archive, "Distribution");
    std::vector<std::string> identifiers;
    for (const std::string& folder : referencedFolders(distribution)) {
        identifiers.push_back(componentIdentifier(archive, folder));
    }
    const auto title = distribution.root().firstElement("title");
    std::vector<std::string> titles{title ? Text::trimmingWhitespaceAndNewlines(title->text())
                                          : lastPathComponent(deletingPathExtension(package))};
    const std::vector<std::string> choices = choiceTitles(distribution);
    const std::vector<std::string>& parts = choices.empty() ? identifiers : choices;
    titles.insert(titles.end(), parts.begin(), parts.end());
    return titles;
}

std::vector<std::string> titles(const FileURL& package) {
    if (pathExtension(package) != "pkg") throw FormatError("The name does not end in .pkg");
    const Xar::Archive archive = Xar::Archive::open(package);
    if (archive.contents().find("Distribution") != nullptr) return productTitles(archive, package);
    componentIdentifier(archive, "");
    return {lastPathComponent(deletingPathExtension(package))};
}

int printPackageInformation(const std::string& package) {
    try {
        std::string lines;
        for (const std::string& title : titles(package)) lines += Text::printable(title) + "\n";
        print(lines);
        return 0;
    } catch (const std::exception& error) {
        printError(Text::printable("installer: Error - the package path specified was invalid: '" + package + "'.") +
                   "\n" + Text::printable(error.what()) + "\n");
        return 1;
    }
}

} // namespace

int installer(const Arguments& arguments) {
    const bool known = arguments.size() == 3 && arguments[0] == "-pkginfo" && arguments[1] == "-pkg";
    if (!known) throw UsageError("Usage: installer -pkginfo -pkg PACKAGE");
    return printPackageInformation(arguments[2]);
}

} // namespace corvane::Tools
