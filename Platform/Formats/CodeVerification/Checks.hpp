#pragma once

#include "Platform/Formats/CodeVerification/CodeFailure.hpp"
#include "Platform/Formats/CodeVerification/HashWork.hpp"

#include <memory>
#include <optional>
#include <vector>

namespace corvane::CodeSignature {

/// The checks of a piece of code in the order in which their failures count. Some have failed when they are added;
/// others wait for digests.
class Checks {
  public:
    /// A failure that ends everything.
    void addFailure(CodeFailure failure);
    /// The same, when the job turns out bad.
    void addJob(std::size_t job, CodeFailure failure);

    /// Something wrong with one file. All of them are told, under the problem of the first one.
    void addResourceFailure(const char* problem, FileNote note);
    void addResourceJob(std::size_t job, const char* problem, FileNote note);
    /// What was found wrong with files so far is the failure.
    void endResources();

    /// The checks of nested code. Its failures end everything, but for its being other code than was sealed: that is
    /// wrong with one file.
    void addNested(const FileURL& url, std::unique_ptr<Checks> checks);
    /// The checks of another version of a framework.
    void addOtherVersion(const FileURL& url, std::unique_ptr<Checks> checks);

    /// After the work is done: the first failure.
    std::optional<CodeFailure> failure(const HashWork& work) const;

  private:
    enum class Kind { final, resource, endOfResources, nested, otherVersion };

    struct Check {
        Kind kind = Kind::final;
        /// Without a job the check has failed.
        std::optional<std::size_t> job{};
        /// With a note at most, when it is about a resource.
        CodeFailure failure{};
        std::unique_ptr<Checks> nested{};
    };

    std::vector<Check> checks_;
};

} // namespace corvane::CodeSignature
