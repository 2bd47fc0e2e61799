#pragma once

#include "Support/PropertyList.hpp"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::CodeResources {

/// How a path of a bundle is treated.
struct Treatment {
    /// It is part of the seal. False for what rules leave out, what no rule speaks of, and what is always left out.
    bool isSealed = false;
    /// Whoever walks the bundle does not enter it.
    bool isExcluded = false;
    /// A folder with a dot in its name is one piece of nested code.
    bool isNested = false;
};

/// The rules by which a bundle's files are sealed: patterns (POSIX extended expressions, searched in the path from the
/// resource root) with weights.
class ResourceRules {
  public:
    /// @param rules the dictionary of a CodeResources file; @param name for errors
    /// @throws FormatError for a pattern or value that is none
    static ResourceRules parse(const PropertyList::Dictionary& rules, const std::string& name);

    /// Leaves a path out whatever the rules say: the signature's own files, the main executable.
    void exclude(std::string path) { exclusions_.push_back(std::move(path)); }

    /// Threads may ask side by side.
    Treatment treatment(std::string_view path) const;

    /// Whether they leave out what the usual rules seal, or do not begin with a rule for everything.
    bool areWeak() const;
    /// As the list holds them, `exclude` not counted.
    std::size_t count() const;

  private:
    struct Rule;
    std::shared_ptr<const std::vector<Rule>> rules_;
    std::vector<std::string> exclusions_;
};

} // namespace corvane::CodeResources
