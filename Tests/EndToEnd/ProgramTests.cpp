// The program itself, as a process: where it finds its tools, signals, limits of the system, full disks.

#include "Support/FileManager.hpp"
#include "Tests/EndToEnd/SigningMachine.hpp"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <system_error>
#include <thread>

namespace corvane {
namespace {

using namespace TestSupport;
using Strings = std::vector<std::string>;

const std::string& corvane() {
    static const std::string path = program("bin/corvane").string();
    return path;
}

/// A process whose standard error is read while it runs.
class RunningProgram {
  public:
    explicit RunningProgram(const Strings& command) {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category());
        child_ = ::fork();
        if (child_ == 0) execute(command, ends[1]);
        ::close(ends[1]);
        errors_ = UniqueDescriptor(ends[0]);
    }

    /// Reads until a text has come, or the stream has ended.
    void waitFor(std::string_view text) {
        char byte = 0;
        while (seen_.find(text) == std::string::npos && ::read(errors_.get(), &byte, 1) == 1) seen_ += byte;
    }

    void signal(int number) const { ::kill(child_, number); }

    /// Waits for the end; the exit code, or 128 and the signal's number.
    int finish() {
        waitFor("\xFF no text has this");
        int status = 0;
        ::waitpid(child_, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

    const std::string& seen() const { return seen_; }

  private:
    [[noreturn]] static void execute(const Strings& command, int standardError) {
        ::dup2(standardError, STDERR_FILENO);
        std::vector<char*> arguments;
        for (const std::string& argument : command) arguments.push_back(const_cast<char*>(argument.c_str()));
        arguments.push_back(nullptr);
        ::execv(arguments[0], arguments.data());
        ::_exit(127);
    }

    pid_t child_ = -1;
    UniqueDescriptor errors_;
    std::string seen_;
};

/// The program at a place of its own, where its tools are those that a test puts into prefix/libexec/corvane.
std::string installedCopy(const Sandbox& sandbox) {
    FileManager::createDirectory(sandbox / "prefix/bin");
    std::filesystem::copy_file(corvane(), sandbox / "prefix/bin/corvane");
    return (sandbox / "prefix/bin/corvane").string();
}

Strings signCommand(const SigningMachine& machine, const FileURL& package) {
    return {corvane(),           "sign",         package.string(),          "--sign", machine.identity(),
            "--allow-untrusted", "--output-dir", (machine / "out").string()};
}

/// As a line for a shell; none of our words holds a quote.
std::string quoted(const Strings& command) {
    std::string line;
    for (const std::string& word : command) line += "'" + word + "' ";
    return line;
}

/// Runs shell commands where small disks can be mounted that nobody else sees.
Outcome runWithMounts(const std::string& script) {
    return run({"unshare", "--user", "--map-root-user", "--mount", "sh", "-c", script});
}

bool canMount() { return runWithMounts("mount -t tmpfs none /mnt").status == 0; }

TEST(Program, printsItsVersionAndHelp) {
    EXPECT_EQ(run({corvane(), "--version"}).output, "0.3.0\n");
    EXPECT_EQ(run({corvane()}).status, 0);
    EXPECT_EQ(run({corvane(), "bogus"}).status, 64);
}

TEST(Program, findsItsToolsBesideItselfWhereverItLies) {
    const Sandbox sandbox;
    const std::string installed = installedCopy(sandbox);
    sandbox.writeScript("prefix/libexec/corvane/security", "echo '1) 0 \"Developer ID Installer: X\"'");
    EXPECT_EQ(run({installed, "identities"}).output, "Developer ID Installer: X\n");
    std::filesystem::create_symlink(installed, sandbox / "link");
    EXPECT_EQ(run({(sandbox / "link").string(), "identities"}).output, "Developer ID Installer: X\n");
    std::filesystem::remove(sandbox / "prefix/libexec/corvane/security");
    EXPECT_EQ(run({(sandbox / "link").string(), "identities"}).errors, "No Developer ID Installer identities found.\n");
}

TEST(Program, anInterruptEndsAJobThatWaitsForATimestamp) {
    const SigningMachine machine({TimestampBehaviour::silent});
    RunningProgram program(signCommand(machine, machine.makeProduct()));
    program.waitFor("Signing with: ");
    program.signal(SIGINT);
    program.signal(SIGINT);
    EXPECT_EQ(program.finish(), 130);
    EXPECT_TRUE(program.seen().ends_with("corvane: cancelled\n")) << program.seen();
    EXPECT_EQ(machine.temporaryFiles(), Strings{});
    EXPECT_EQ(machine.outputFiles(), Strings{});
}

TEST(Program, aTerminationEndsAJobBySignalOnceItsFolderIsGone) {
    const SigningMachine machine({TimestampBehaviour::silent});
    const Strings command = signCommand(machine, machine.makeProduct());
    for (const int number : {SIGTERM, SIGHUP}) {
        RunningProgram program(command);
        program.waitFor("Signing with: ");
        program.signal(number);
        EXPECT_EQ(program.finish(), 128 + number);
        EXPECT_TRUE(program.seen().ends_with("corvane: cancelled\n")) << program.seen();
        EXPECT_EQ(machine.temporaryFiles(), Strings{});
        EXPECT_EQ(machine.outputFiles(), Strings{});
    }
}

TEST(Program, aSignalEndsAListingOnceItsFolderIsGone) {
    const Sandbox sandbox;
    const SigningMachine machine;
    const std::string installed = installedCopy(sandbox);
    sandbox.writeScript("prefix/libexec/corvane/pkgutil",
                        "echo > '" + (sandbox / "reached").string() + "'\nexec sleep 60");
    for (const int number : {SIGINT, SIGTERM}) {
        RunningProgram program({installed, "components", machine.makeProduct().string()});
        while (!FileManager::fileExists(sandbox / "reached")) std::this_thread::yield();
        EXPECT_EQ(machine.temporaryFiles().size(), 1U);
        program.signal(number);
        EXPECT_EQ(program.finish(), 128 + number);
        EXPECT_EQ(machine.temporaryFiles(), Strings{});
        FileManager::removeItem(sandbox / "reached");
    }
}

TEST(Program, aReaderThatGoesAwayDoesNotStopTheJob) {
    const SigningMachine machine;
    const std::string command = quoted(signCommand(machine, machine.makeProduct())) + "--json";
    EXPECT_EQ(run({"sh", "-c", "{ " + command + "; echo $? >&2; } | true"}).errors, "0\n");
    EXPECT_EQ(machine.outputFiles(), Strings{"Harbor Tools-signed.pkg"});
    EXPECT_EQ(machine.temporaryFiles(), Strings{});
}

TEST(Program, aLimitOnFileSizesFailsTheJobAndLeavesNothing) {
    const SigningMachine machine;
    const FileURL package = machine.makeProduct("Tool.pkg", std::size_t{1} << 20);
    for (const char* blocks : {"1", "16", "1024"}) {
        const Outcome outcome =
            run({"sh", "-c", "ulimit -f " + std::string(blocks) + "; exec " + quoted(signCommand(machine, package))});
        EXPECT_EQ(outcome.status, 1) << outcome.errors;
        EXPECT_NE(outcome.errors.find("corvane: productsign with trusted timestamp failed"), std::string::npos)
            << outcome.errors;
        EXPECT_EQ(machine.outputFiles(), Strings{});
        EXPECT_EQ(machine.temporaryFiles(), Strings{});
    }
}

TEST(Program, aFullDiskFailsTheJobAndLeavesNothing) {
    if (!canMount()) GTEST_SKIP() << "this system allows nobody to mount a small disk";
    const SigningMachine machine;
    const FileURL package = machine.makeProduct("Tool.pkg", std::size_t{1} << 20);
    for (const char* folder : {"temporary", "out"}) {
        const std::string disk = (machine / folder).string();
        const Outcome outcome =
            runWithMounts("mount -t tmpfs -o size=512k none " + disk + " && " + quoted(signCommand(machine, package)) +
                          "; status=$?; ls -A " + disk + "; exit $status");
        EXPECT_EQ(outcome.status, 1) << outcome.errors;
        EXPECT_EQ(outcome.output, "");
        EXPECT_NE(outcome.errors.find("No space left on device"), std::string::npos) << outcome.errors;
    }
    EXPECT_EQ(machine.outputFiles(), Strings{});
    EXPECT_EQ(machine.temporaryFiles(), Strings{});
}

TEST(Program, anOutputFolderOnAnotherDiskGetsTheWholePackageOrNothing) {
    if (!canMount()) GTEST_SKIP() << "this system allows nobody to mount a small disk";
    const SigningMachine machine;
    const std::string out = (machine / "out").string();
    const std::string command = quoted(signCommand(machine, machine.makeProduct()));
    const std::string package = "'" + out + "/Harbor Tools-signed.pkg'";
    Outcome outcome = runWithMounts("mount -t tmpfs none " + out + " && " + command + "&& ls -A " + out +
                                    " && 7zz t -txar " + package + " > /dev/null");
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.output, out + "/Harbor Tools-signed.pkg\nHarbor Tools-signed.pkg\n");
    outcome = runWithMounts("mount -t tmpfs -o ro none " + out + " && ! " + command + "&& ls -A " + out);
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.output, "");
    EXPECT_TRUE(outcome.errors.ends_with(": Read-only file system\n")) << outcome.errors;
    EXPECT_EQ(machine.temporaryFiles(), Strings{});
}

} // namespace
} // namespace corvane
