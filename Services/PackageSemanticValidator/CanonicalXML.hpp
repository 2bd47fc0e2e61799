#pragma once

#include "Support/XML.hpp"

#include <string>

/// XML trees in the form in which they are compared.
namespace corvane::PackageSemanticValidator {

/// Sorts the attributes of the element and of all below it, and removes texts that are only white space.
void normalizeXMLTree(const XML::Node& element);

/// Gives the element an attribute, behind its others; one of that name goes first.
void setAttribute(const std::string& name, const std::string& value, const XML::Node& element);

} // namespace corvane::PackageSemanticValidator
