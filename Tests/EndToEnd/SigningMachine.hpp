#pragma once

#include "Services/SystemTool.hpp"
#include "Tests/TestHierarchy.hpp"
#include "Tests/TestSupport.hpp"
#include "Tests/TimestampServer.hpp"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace corvane::TestSupport {

/// A build machine in a folder: a user with a keychain, an identity, a trusted root, a time-stamp authority on loopback
/// and a folder for temporary files of its own. The portable tools stand at the system's paths, each behind a script
/// that a test may change. While one lives, the environment of this process is that machine's.
class SigningMachine {
  public:
    explicit SigningMachine(std::vector<TimestampBehaviour> timestamps = {TimestampBehaviour::good});
    SigningMachine(const SigningMachine&) = delete;
    SigningMachine& operator=(const SigningMachine&) = delete;
    ~SigningMachine();

    const std::string& identity() const { return TestHierarchy::shared().installer().name; }
    FileURL operator/(std::string_view name) const { return sandbox_ / name; }
    const Sandbox& sandbox() const { return sandbox_; }

    /// An unsigned product package with a component, scripts and a payload file of some size, in "in/".
    FileURL makeProduct(std::string_view name = "Harbor Tools.pkg", std::size_t payloadSize = 4096) const;

    /// Makes a certificate, as DER, one of the administrator's trusted roots.
    void trust(const std::string& certificate) const;

    /// Runs the command line in this process, without waiting between signing retries.
    Outcome corvane(const std::vector<std::string>& arguments) const;

    /// Lets shell commands run before the real tool does; `$call` is the number of this tool's call, from 1, and
    /// `"$real"` the real tool, for scripts that run it themselves.
    void before(std::string_view tool, std::string_view script) const;

    /// What lies in the folder for temporary files, and in the output folder "out/".
    std::vector<std::string> temporaryFiles() const;
    std::vector<std::string> outputFiles() const;

    /// Every file and folder of the machine but inputs, results and records of mounts, with owner, mode, and size, time
    /// and target of what is no folder.
    std::string snapshot() const;

  private:
    void setEnvironment(const std::string& name, const std::string& value);
    void setUpKeychain() const;

    Sandbox sandbox_;
    std::map<std::string, std::optional<std::string>> savedEnvironment_;
    TimestampServer authority_;
    SystemTool::Override override_{sandbox_ / "tools"};
};

/// The tools that jobs call.
inline const std::vector<std::string> jobTools{"security", "pkgutil", "spctl", "productsign",  "installer",
                                               "pkgbuild", "lsbom",   "diff",  "productbuild", "hdiutil",
                                               "codesign", "ditto",   "xattr", "plutil",       "open"};

} // namespace corvane::TestSupport
