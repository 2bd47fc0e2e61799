#pragma once

#include "Support/FileURL.hpp"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What the suites share.
namespace corvane::TestSupport {

/// An empty folder for one test, removed with its content when the test is over.
class Sandbox {
  public:
    Sandbox();
    Sandbox(const Sandbox&) = delete;
    Sandbox& operator=(const Sandbox&) = delete;
    ~Sandbox();

    const FileURL& url() const { return url_; }
    FileURL operator/(std::string_view name) const { return url_ / name; }

    /// Writes a file, and the folders above it; returns its path.
    FileURL write(std::string_view name, std::string_view content) const;
    /// Writes an executable shell script; returns its path.
    FileURL writeScript(std::string_view name, std::string_view body) const;

  private:
    FileURL url_;
};

std::string read(const FileURL& url);

/// The folder of real samples, when this build knows one. Tests over them begin with CORVANE_REQUIRE_SAMPLES.
std::optional<FileURL> samples();

/// An executable of the build under test: "bin/corvane", "libexec/corvane/pkgutil".
FileURL program(std::string_view relativePath);

/// A file of the source tree.
FileURL source(std::string_view relativePath);

/// What a finished command left. `status` is the exit code, or 128 and the signal's number.
struct Outcome {
    int status = -1;
    std::string output;
    std::string errors;
};

/// How a command is run: `environment` holds NAME=value settings added to the test's own.
struct RunOptions {
    std::vector<std::string> environment;
    std::optional<FileURL> folder;
    std::string input;
};

/// Runs a command to its end, found by path or in PATH. Both streams are captured apart.
Outcome run(const std::vector<std::string>& command, const RunOptions& options = {});

} // namespace corvane::TestSupport

#define CORVANE_REQUIRE_SAMPLES()                                                                                      \
    if (!::corvane::TestSupport::samples()) GTEST_SKIP() << "no folder of samples is configured (CORVANE_SAMPLES)"
