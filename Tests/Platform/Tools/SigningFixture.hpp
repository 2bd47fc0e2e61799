#pragma once

#include "Tests/TestHierarchy.hpp"
#include "Tests/TestSupport.hpp"

namespace corvane::TestSupport {

/// A keychain of the test's own that trusts the test root, and the tools that use it.
class SigningFixture : public ::testing::Test {
  protected:
    SigningFixture() {
        expectGood("security", {"add-trusted-cert", sandbox.write("root.pem", hierarchy().root().certificate)});
    }

    static TestHierarchy& hierarchy() { return TestHierarchy::shared(); }

    Outcome tool(const std::string& name, std::vector<std::string> arguments,
                 std::vector<std::string> environment = {}) const {
        arguments.insert(arguments.begin(), program("libexec/corvane/" + name).string());
        environment.push_back("XDG_DATA_HOME=" + (sandbox / "data").string());
        return run(arguments, {.environment = environment, .folder = sandbox.url()});
    }

    Outcome expectGood(const std::string& name, const std::vector<std::string>& arguments) const {
        Outcome outcome = tool(name, arguments);
        EXPECT_EQ(outcome.status, 0) << name << " " << arguments[0] << ": " << outcome.errors;
        return outcome;
    }

    void import(const std::string& pem) const {
        expectGood("security", {"import", sandbox.write("identity.pem", pem)});
    }

    FileURL keychain() const { return sandbox / "data/corvane/keychain"; }

    Sandbox sandbox;
};

} // namespace corvane::TestSupport
