#include "Services/PackageSemanticValidator/CanonicalXML.hpp"

#include "Support/Text.hpp"

namespace corvane::PackageSemanticValidator {

void normalizeXMLTree(const XML::Node& element) {
    element.sortAttributes();
    for (const XML::Node& child : element.children()) {
        if (child.isElement()) {
            normalizeXMLTree(child);
        } else if (child.isText() && Text::trimmingWhitespaceAndNewlines(child.text()).empty()) {
            child.remove();
        }
    }
}

void setAttribute(const std::string& name, const std::string& value, const XML::Node& element) {
    element.removeAttribute(name);
    element.setAttribute(name, value);
}

} // namespace corvane::PackageSemanticValidator
