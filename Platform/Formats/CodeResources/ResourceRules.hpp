#pragma once

#include "Support/PropertyList.hpp"

#include <cstddef>
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
    /// A folder with a dot in its name is one piece of nested code. Only of what is sealed.
    bool isNested = false;
};

/// The rules by which a bundle's files are sealed: patterns (POSIX extended expressions, searched in the path from the
/// resource root) with weights. Of the rules that match a path the heaviest decides; of several with the same weight
/// one that seals, and of those one that does not take folders as nested code, so that every file counts. The
/// signature's own files are always left out. Whether a file may be missing is told by its seal, not here.
class ResourceRules {
  public:
    /// Most rules, most bytes of one pattern, and most steps that all take together for one byte of a path. Usual lists
    /// have 13 rules of at most a hundred bytes.
    static constexpr std::size_t ruleLimit = 128;
    static constexpr std::size_t patternLimit = 1024;
    static constexpr std::size_t stepLimit = 2048;

    /// @param rules the dictionary of a CodeResources file; @param name for errors
    /// @throws FormatError for a pattern or value that is none, and beyond the limits. Also for patterns that readers
    /// understand in different ways: back references, letters behind a backslash, collating elements.
    static ResourceRules parse(const PropertyList::Dictionary& rules, const std::string& name);

    /// Leaves a path, and what is below it, out whatever the rules say: the main executable.
    void exclude(std::string path) { exclusions_.push_back(std::move(path)); }

    /// Lists of version 1 do not speak of links: whoever walks the bundle passes them over.
    void leaveOutLinks() { sealLinks_ = false; }
    bool sealLinks() const { return sealLinks_; }

    /// Threads may ask side by side.
    Treatment treatment(std::string_view path) const;

    /// Whether they leave out what the usual rules seal, or hold no rule that seals everything else.
    /// @param version of the list: those of version 1 seal no more than Resources
    bool areWeak(int version) const;
    /// As the list holds them, `exclude` not counted.
    std::size_t count() const;

  private:
    struct Rule;
    bool isExcluded(std::string_view path) const;

    /// The one that decides first.
    std::shared_ptr<const std::vector<Rule>> rules_;
    std::vector<std::string> exclusions_;
    bool sealLinks_ = true;
};

} // namespace corvane::CodeResources
