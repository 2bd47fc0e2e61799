#include "Platform/Tools/OptionList.hpp"

#include <algorithm>

namespace corvane::Tools {
namespace {

bool contains(const std::vector<std::string>& names, const std::string& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

} // namespace

OptionList::OptionList(const Arguments& arguments, const std::vector<std::string>& valued,
                       const std::vector<std::string>& flags, const char* usage) {
    for (auto argument = arguments.begin(); argument != arguments.end(); ++argument) {
        if (argument->empty()) throw UsageError(std::string("A file has no name.\n") + usage);
        if (!argument->starts_with("-")) {
            operands_.push_back(*argument);
            continue;
        }
        const std::string& name = *argument;
        const bool takesValue = contains(valued, name);
        if (!takesValue && !contains(flags, name)) throw UsageError("Unknown option: " + name + "\n" + usage);
        if (takesValue && ++argument == arguments.end()) throw UsageError(name + " needs a value.\n" + usage);
        if (!values_.emplace(name, takesValue ? *argument : "").second) {
            throw UsageError(name + " stands there twice.\n" + usage);
        }
    }
}

std::optional<std::string> OptionList::value(const std::string& name) const {
    const auto found = values_.find(name);
    if (found == values_.end()) return std::nullopt;
    return found->second;
}

} // namespace corvane::Tools
