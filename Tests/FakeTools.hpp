#pragma once

#include "Services/SystemTool.hpp"
#include "Tests/TestSupport.hpp"

#include <string>
#include <vector>

namespace corvane::TestSupport {

/// A folder of fake system tools that takes the place of the real ones while this lives. Each fake notes its arguments
/// and then does what its script says.
class FakeTools {
  public:
    /// @param script shell commands; `$call` is the number of this tool's call, from 1
    void tool(std::string_view name, std::string_view script) const {
        sandbox_.writeScript("tools/" + std::string(name),
                             "here=" + sandbox_.url().string() + "\nname=" + std::string(name) + R"(
echo >> "$here/$name.calls"
call=$(wc -l < "$here/$name.calls")
{ printf '%s' "$name"; for argument in "$@"; do printf '|%s' "$argument"; done; echo; } >> "$here/log"
)" + std::string(script) + "\n");
    }

    /// One line a call, in order: the tool's name and its arguments, joined by "|".
    std::vector<std::string> calls() const {
        std::vector<std::string> lines;
        if (!std::filesystem::exists(sandbox_ / "log")) return lines;
        std::string text = read(sandbox_ / "log");
        for (std::size_t end; (end = text.find('\n')) != std::string::npos; text.erase(0, end + 1)) {
            lines.push_back(text.substr(0, end));
        }
        return lines;
    }

    const Sandbox& sandbox() const { return sandbox_; }

  private:
    Sandbox sandbox_;
    SystemTool::Override override_{sandbox_ / "tools"};
};

} // namespace corvane::TestSupport
