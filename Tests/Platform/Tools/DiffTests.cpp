#include "Support/UniqueDescriptor.hpp"
#include "Tests/TestSupport.hpp"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace corvane {
namespace {

using TestSupport::Sandbox;

TestSupport::Outcome ours(const Sandbox& sandbox, const std::string& left, const std::string& right) {
    return TestSupport::run({TestSupport::program("libexec/corvane/diff"), "-r", "-q", left, right},
                            {.folder = sandbox.url()});
}

TestSupport::Outcome theirs(const Sandbox& sandbox, const std::string& left, const std::string& right) {
    return TestSupport::run({"diff", "-r", "-q", "--no-dereference", left, right},
                            {.environment = {"LC_ALL=C"}, .folder = sandbox.url()});
}

void expectSame(const Sandbox& sandbox, const std::string& left, const std::string& right, int status) {
    SCOPED_TRACE(left + " " + right);
    const auto expected = theirs(sandbox, left, right);
    const auto found = ours(sandbox, left, right);
    EXPECT_EQ(expected.status, status) << expected.output << expected.errors;
    EXPECT_EQ(found.status, expected.status);
    EXPECT_EQ(found.output, expected.output);
    EXPECT_EQ(found.errors, expected.errors);
}

/// Makes a file of each kind; "file" and "empty" are regular ones, "" is nothing.
void make(const Sandbox& sandbox, const std::string& path, const std::string& kind) {
    if (kind == "directory") {
        sandbox.write(path + "/inside", path);
    } else if (kind == "fifo") {
        ::mkfifo((sandbox / path).c_str(), 0600);
    } else if (kind == "socket") {
        const int descriptor = ::socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string full = sandbox / path;
        full.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        ::close(descriptor);
    } else if (kind.starts_with("->")) {
        std::filesystem::create_symlink(kind.substr(2), sandbox / path);
    } else if (!kind.empty()) {
        sandbox.write(path, kind == "empty" ? "" : kind);
    }
}

/// Two trees "a" and "b": each kind against each, and names whose order is that of their bytes.
void makeTrees(const Sandbox& sandbox) {
    const std::vector<std::string> kinds{"directory", "fifo", "socket", "->x", "->y", "empty", "file", "fold", ""};
    for (std::size_t left = 0; left < kinds.size(); ++left) {
        for (std::size_t right = 0; right < kinds.size(); ++right) {
            const std::string name = std::to_string(left) + std::to_string(right);
            make(sandbox, "a/" + name, kinds[left]);
            make(sandbox, "b/" + name, kinds[right]);
        }
    }
    for (const char* name : {"B", "a b", "\xC3\xA9", "a\nb", "_", "-", "sub/B", "sub/b"}) {
        make(sandbox, std::string("a/") + name, "file");
        make(sandbox, std::string("b/") + name, "fold");
    }
    for (const char* name : {"a/sub/Z", "a/sub/a", "b/sub/A", "b/sub/z"}) make(sandbox, name, "file");
}

TEST(Diff, answersAsGNUDiff) {
    const Sandbox sandbox;
    makeTrees(sandbox);
    std::filesystem::copy(sandbox / "b/sub", sandbox / "c", std::filesystem::copy_options::recursive);
    std::filesystem::create_symlink("a", sandbox / "link");
    const std::vector<std::tuple<const char*, const char*, int>> cases{
        {"a", "b", 1},       {"a/", "b//", 1},       {"a//sub", "b/sub/", 1}, {"b/sub", "c", 0},
        {"a", "a", 0},       {"link", "a", 2},       {"a/67", "b/67", 1},     {"a/66", "b/66", 0},
        {"a/56", "b/56", 1}, {"a/34", "b/34", 1},    {"a/33", "b/33", 0},     {"a/36", "b/36", 1},
        {"a", "b/66", 0},    {"b/67", "a", 1},       {"a", "b/81", 2},        {"b/sub/z", "a/sub", 2},
        {"a", "missing", 2}, {"missing", "gone", 2}, {"a/66/", "b/66", 2},    {"", "b", 2}};
    for (const auto& [left, right, status] : cases) expectSame(sandbox, left, right, status);
}

/// A size that no buffer divides, and a difference in each place that matters.
TEST(Diff, comparesEveryByte) {
    const Sandbox sandbox;
    const std::string content((std::size_t{3} << 17) + 5, '\0');
    sandbox.write("a", content);
    for (const std::size_t place : std::initializer_list<std::size_t>{0, (1 << 17) - 1, 1 << 17, content.size() - 1}) {
        std::string changed = content;
        changed[place] = 1;
        sandbox.write("b", changed);
        EXPECT_EQ(ours(sandbox, "a", "b").output, "Files a and b differ\n") << place;
    }
    sandbox.write("b", content);
    EXPECT_EQ(ours(sandbox, "a", "b").status, 0);
}

/// What cannot be read is trouble; the rest is still compared. Root may read everything.
TEST(Diff, goesOnAfterTrouble) {
    if (::geteuid() == 0) GTEST_SKIP() << "root reads every file";
    const Sandbox sandbox;
    for (const char* side : {"a/", "b/"}) {
        for (const char* name : {"closed/x", "file", "same"}) sandbox.write(std::string(side) + name, "1");
        sandbox.write(std::string(side) + "z", side);
        ::chmod((sandbox / (std::string(side) + "closed")).c_str(), 0);
    }
    ::chmod((sandbox / "b/file").c_str(), 0);
    expectSame(sandbox, "a", "b", 2);
    for (const char* side : {"a/closed", "b/closed"}) ::chmod((sandbox / side).c_str(), 0700);
}

/// Folders within each other as far as the system names them: as GNU diff, the comparison ends there with trouble.
TEST(Diff, survivesDeepTrees) {
    const Sandbox sandbox;
    for (const char* side : {"a", "b"}) {
        std::filesystem::create_directory(sandbox / side);
        UniqueDescriptor folder(::open((sandbox / side).c_str(), O_RDONLY | O_DIRECTORY));
        for (int depth = 0; depth < 1500; ++depth) {
            ASSERT_EQ(::mkdirat(folder.get(), "dd", 0755), 0);
            folder = UniqueDescriptor(::openat(folder.get(), "dd", O_RDONLY | O_DIRECTORY));
        }
    }
    expectSame(sandbox, "a", "b", 2);
    EXPECT_EQ(TestSupport::run({"rm", "-r", sandbox / "a", sandbox / "b"}).status, 0);
}

TEST(Diff, takesNoOtherCalls) {
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{},
                                               {"a", "b"},
                                               {"-r", "a", "b"},
                                               {"-q", "-r", "a", "b"},
                                               {"-r", "-q", "a"},
                                               {"-r", "-q", "a", "b", "c"}}) {
        std::vector<std::string> command{TestSupport::program("libexec/corvane/diff")};
        command.insert(command.end(), arguments.begin(), arguments.end());
        const auto outcome = TestSupport::run(command);
        EXPECT_EQ(outcome.status, 64);
        EXPECT_EQ(outcome.errors, "Usage: diff -r -q FILE FILE\n");
    }
}

} // namespace
} // namespace corvane
