#include "Platform/Formats/FlatPackage/Layout.hpp"

namespace corvane::FlatPackage {
namespace {

std::string lineBreak(std::size_t level) { return "\n" + std::string(4 * level, ' '); }

} // namespace

void layOut(const XML::Node& element, std::size_t level) {
    const auto children = element.elements();
    for (const XML::Node& child : children) {
        child.insertTextBefore(lineBreak(level + 1));
        layOut(child, level + 1);
    }
    if (!children.empty()) element.appendText(lineBreak(level));
}

std::string documentText(const XML::Document& document, Declaration declaration) {
    constexpr std::string_view declarationEnd = "?>";
    std::string text = document.serialized(false);
    text.erase(0, text.find(declarationEnd) + declarationEnd.size());
    if (text.ends_with('\n')) text.pop_back();
    const std::string standalone = declaration == Declaration::standalone ? " standalone=\"yes\"" : "";
    return "<?xml version=\"1.0\" encoding=\"utf-8\"" + standalone + "?>" + text;
}

} // namespace corvane::FlatPackage
