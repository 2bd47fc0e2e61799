// Opens and closes flat packages, and reports on their signatures.

#include "Platform/Tools/PackageExpansion.hpp"
#include "Platform/Tools/PackageFlattening.hpp"
#include "Platform/Tools/PackageSignatureReport.hpp"
#include "Platform/Tools/Termination.hpp"
#include "Platform/Tools/Tool.hpp"
#include "Support/CancellationError.hpp"
#include "Support/FileError.hpp"
#include "Support/Text.hpp"

namespace corvane::Tools {
namespace {

constexpr const char* usage = "Usage: pkgutil --expand PACKAGE FOLDER\n"
                              "       pkgutil --expand-full PACKAGE FOLDER\n"
                              "       pkgutil --flatten FOLDER PACKAGE\n"
                              "       pkgutil --check-signature PACKAGE";

/// The first line of a failure is always the same; callers know it.
int reportFailure(const FileURL& package, const std::exception& error) {
    printError(Text::printable("Could not open package for expansion: " + package.string()) + "\n" +
               Text::printable(error.what()) + "\n");
    return 1;
}

int expand(const FileURL& package, const FileURL& folder, Payloads payloads) {
    if (std::filesystem::exists(std::filesystem::symlink_status(folder))) {
        throw FileError("Cannot create the folder", folder, std::make_error_code(std::errc::file_exists));
    }
    return runUntilTerminated([&](const std::stop_token& stop) {
        try {
            expandPackage(package, folder, payloads, stop);
            return 0;
        } catch (const CancellationError&) {
            throw;
        } catch (const std::exception& error) {
            return reportFailure(package, error);
        }
    });
}

int flatten(const FileURL& folder, const FileURL& package) {
    return runUntilTerminated([&](const std::stop_token& stop) {
        flattenPackage(folder, package, stop);
        return 0;
    });
}

} // namespace

int pkgutil(const Arguments& arguments) {
    if (arguments.size() == 3 && arguments[0] == "--expand") return expand(arguments[1], arguments[2], Payloads::keep);
    if (arguments.size() == 3 && arguments[0] == "--expand-full") {
        return expand(arguments[1], arguments[2], Payloads::expand);
    }
    if (arguments.size() == 3 && arguments[0] == "--flatten") return flatten(arguments[1], arguments[2]);
    if (arguments.size() == 2 && arguments[0] == "--check-signature") return reportPackageSignature(arguments[1]);
    throw UsageError(usage);
}

} // namespace corvane::Tools
