#pragma once

#include "Services/PackagingPipeline.hpp"
#include "Sources/CorvaneCLIKit/CLIArguments.hpp"
#include "Sources/CorvaneCLIKit/CLIStreams.hpp"
#include "Support/JSON.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace corvane {

/// The program behind its entry point: arguments in, lines out, exit status.
class CLIApplication {
  public:
    /// @param isInputTTY tells whether a person can answer at standard input
    /// @param readInputLine one line of standard input without its break; nothing at the end of input
    explicit CLIApplication(std::shared_ptr<CLIStreams> streams, std::function<bool()> isInputTTY = &inputIsTTY,
                            std::function<std::optional<std::string>()> readInputLine = &inputLine,
                            PipelineTiming timing = {})
        : streams_(std::move(streams)),
          isInputTTY_(std::move(isInputTTY)),
          readInputLine_(std::move(readInputLine)),
          timing_(timing) {}

    /// Runs one command line (without the program's name) to its end. The statuses: 0 done, 1 failed, 64 not
    /// understood, 66 input or output folder missing, 69 signing identity missing, 130 cancelled.
    std::int32_t run(const std::vector<std::string>& arguments) const;

    /// Shows a job's events as they come and answers its gates, until its terminal event. Returns the exit status.
    std::int32_t follow(const PackagingPipeline::Job& job, const CLIRunOptions& options) const;

  private:
    friend class JobRendering;

    static bool inputIsTTY();
    static std::optional<std::string> inputLine();

    std::int32_t dispatch(const CLIInvocation& invocation) const;
    std::int32_t runPipeline(const CLIRunOptions& options) const;
    std::int32_t listIdentities(bool json) const;
    std::int32_t listComponents(const FileURL& inputURL, bool json) const;

    /// One compact line on standard output; a complaint on standard error when the object cannot be encoded.
    void emitJSON(const JSONValue& object) const;
    /// Reports a failure in the form that was asked for. Returns the same exit code.
    std::int32_t emitFailure(const std::string& message, bool json, std::int32_t exitCode) const;
    bool inputExists(const FileURL& inputURL, bool json) const;
    bool validateFilesystem(const CLIRunOptions& options) const;

    std::shared_ptr<CLIStreams> streams_;
    std::function<bool()> isInputTTY_;
    std::function<std::optional<std::string>()> readInputLine_;
    PipelineTiming timing_;
};

} // namespace corvane
