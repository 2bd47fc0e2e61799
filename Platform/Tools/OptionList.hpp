#pragma once

#include "Platform/Tools/Tool.hpp"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace corvane::Tools {

/// The arguments of a tool whose options stand in any order: "--name VALUE", "--name", and operands. Options may have
/// one dash.
class OptionList {
  public:
    /// @param valued the options that take a value
    /// @param flags the options that take none
    /// @param usage what a wrong call is answered with
    /// @throws UsageError for an unknown option, one that comes twice, and a missing value
    OptionList(const Arguments& arguments, const std::vector<std::string>& valued,
               const std::vector<std::string>& flags, const char* usage);

    bool has(const std::string& name) const { return values_.contains(name); }
    std::optional<std::string> value(const std::string& name) const;
    const std::vector<std::string>& operands() const { return operands_; }

  private:
    std::map<std::string, std::string> values_;
    std::vector<std::string> operands_;
};

} // namespace corvane::Tools
