#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

/// The portable tools: each one a function from its arguments to its exit status, which writes to the process's
/// standard streams.
namespace corvane::Tools {

using Arguments = std::vector<std::string>;

/// A call that a tool does not accept. The message is the usage line; the status is 64, or what the tool documents.
class UsageError : public std::runtime_error {
  public:
    explicit UsageError(const std::string& usage, int status = 64) : std::runtime_error(usage), status_(status) {}
    int status() const { return status_; }

  private:
    int status_;
};

/// One tool. Failures that reach the caller of `run` as exceptions are printed as "NAME: text", status 1.
struct Tool {
    std::string_view name;
    /// One line for the list that --help prints.
    std::string_view summary;
    int (*run)(const Arguments& arguments);
};

/// Each tool's own file defines its function; the table stands in Main.cpp.
int codesign(const Arguments& arguments);
int diff(const Arguments& arguments);
int ditto(const Arguments& arguments);
int hdiutil(const Arguments& arguments);
int installer(const Arguments& arguments);
int lsbom(const Arguments& arguments);
int open(const Arguments& arguments);
int pkgbuild(const Arguments& arguments);
int pkgutil(const Arguments& arguments);
int plutil(const Arguments& arguments);
int productbuild(const Arguments& arguments);
int productsign(const Arguments& arguments);
int security(const Arguments& arguments);
int spctl(const Arguments& arguments);
int xattr(const Arguments& arguments);

/// Write to a standard stream at once, the whole text in order. A standard output that does not take the text is a
/// FileError; what standard error does not take is lost.
void print(std::string_view text);
void printError(std::string_view text);

} // namespace corvane::Tools
