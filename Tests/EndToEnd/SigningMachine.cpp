#include "Tests/EndToEnd/SigningMachine.hpp"

#include "Sources/CorvaneCLIKit/CLIApplication.hpp"
#include "Support/FileManager.hpp"

#include <cstdlib>

namespace corvane::TestSupport {
namespace {

FileURL realTool(std::string_view name) { return program("libexec/corvane/" + std::string(name)); }

void require(const Outcome& outcome) {
    if (outcome.status != 0) ADD_FAILURE() << "status " << outcome.status << "\n" << outcome.output << outcome.errors;
}

std::vector<std::string> names(const FileURL& folder) {
    std::vector<std::string> result;
    for (const FileURL& entry : FileManager::contentsOfDirectory(folder)) result.push_back(lastPathComponent(entry));
    return result;
}

} // namespace

SigningMachine::SigningMachine(std::vector<TimestampBehaviour> timestamps) : authority_(std::move(timestamps)) {
    for (const char* folder : {"temporary", "home", "in", "out", "tools"}) {
        FileManager::createPrivateDirectory(sandbox_ / folder);
    }
    setEnvironment("HOME", (sandbox_ / "home").string());
    setEnvironment("XDG_DATA_HOME", (sandbox_ / "home/data").string());
    setEnvironment("XDG_STATE_HOME", (sandbox_ / "home/state").string());
    for (const std::string& tool : jobTools) before(tool, "");
    setUpKeychain();
    setEnvironment("TMPDIR", (sandbox_ / "temporary").string());
}

SigningMachine::~SigningMachine() {
    for (const auto& [name, value] : savedEnvironment_) {
        if (value) {
            ::setenv(name.c_str(), value->c_str(), 1);
        } else {
            ::unsetenv(name.c_str());
        }
    }
}

void SigningMachine::setEnvironment(const std::string& name, const std::string& value) {
    const char* current = std::getenv(name.c_str());
    savedEnvironment_.try_emplace(name, current != nullptr ? std::optional<std::string>(current) : std::nullopt);
    ::setenv(name.c_str(), value.c_str(), 1);
}

void SigningMachine::setUpKeychain() const {
    TestHierarchy& hierarchy = TestHierarchy::shared();
    const std::string security = realTool("security").string();
    const std::string identityFile = sandbox_.write("identity.pem", hierarchy.pem(hierarchy.installer())).string();
    const std::string rootFile = sandbox_.write("root.pem", hierarchy.root().certificate).string();
    require(run({security, "import", identityFile}));
    require(run({security, "add-trusted-cert", rootFile}));
    require(run({security, "set-timestamp-authority", authority_.url()}));
}

FileURL SigningMachine::makeProduct(std::string_view name, std::size_t payloadSize) const {
    const std::string tree = "trees/" + std::string(name);
    const std::string component = tree + "/Tool.pkg/";
    sandbox_.write(tree + "/Distribution",
                   "<installer-gui-script minSpecVersion=\"1\"><title>Harbor Tools</title>"
                   "<pkg-ref id=\"com.example.tool\">#Tool.pkg</pkg-ref></installer-gui-script>");
    sandbox_.write(component + "PackageInfo",
                   "<pkg-info identifier=\"com.example.tool\" version=\"1.2\" install-location=\"/opt\"><scripts>"
                   "<postinstall file=\"./postinstall\"/></scripts></pkg-info>");
    sandbox_.writeScript(component + "Scripts/postinstall", "exit 0\n");
    std::string payload(payloadSize, '\0');
    for (std::size_t at = 0; at < payload.size(); ++at) payload[at] = static_cast<char>(at * 2654435761U >> 13);
    sandbox_.write(component + "Payload", payload);
    FileURL package = sandbox_ / "in" / name;
    require(run({realTool("pkgutil").string(), "--flatten", (sandbox_ / tree).string(), package.string()}));
    return package;
}

void SigningMachine::trust(const std::string& certificate) const {
    require(
        run({realTool("security").string(), "add-trusted-cert", sandbox_.write("trusted.der", certificate).string()}));
}

Outcome SigningMachine::corvane(const std::vector<std::string>& arguments) const {
    Outcome outcome;
    const auto streams = std::make_shared<CLIStreams>([&](std::string_view text) { outcome.output += text; },
                                                      [&](std::string_view text) { outcome.errors += text; });
    const CLIApplication application(
        streams, [] { return false; }, [] { return std::nullopt; },
        {.firstSigningRetry = std::chrono::milliseconds(0)});
    outcome.status = application.run(arguments);
    return outcome;
}

void SigningMachine::before(std::string_view tool, std::string_view script) const {
    const std::string counter = (sandbox_ / (std::string(tool) + ".calls")).string();
    std::filesystem::remove(counter);
    sandbox_.writeScript("tools/" + std::string(tool), "real='" + realTool(tool).string() + "'\necho >> '" + counter +
                                                           "'\ncall=$(wc -l < '" + counter + "')\n" +
                                                           std::string(script) + "\nexec \"$real\" \"$@\"\n");
}

std::vector<std::string> SigningMachine::temporaryFiles() const { return names(sandbox_ / "temporary"); }
std::vector<std::string> SigningMachine::outputFiles() const { return names(sandbox_ / "out"); }

std::string SigningMachine::snapshot() const {
    return run({"sh", "-c",
                "find . -path './out/*' -o -path './in/*' -o -path './temporary/test-*' -o -path './home/state*' -o "
                "-name '*.calls' -o -type d -printf '%p %m %u\\n' -o -printf '%p %m %u %s %T@ %n %l\\n' | sort"},
               {.folder = sandbox_.url()})
        .output;
}

} // namespace corvane::TestSupport
