#pragma once

#include "Support/UniqueDescriptor.hpp"

#include <sys/stat.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::Tools {

/// Compares two files, or two folders with all that is in them. Links are not followed: a link is compared by its text.
/// Owners, modes and times do not matter. Memory holds the names of the folders on the way to the current one, so it
/// grows with the depth only, and no folder stays open; paths that are too long for the system bound the depth.
class TreeComparison {
  public:
    /// The numbers are exit statuses of programs that compare.
    enum class Result { same = 0, different = 1, trouble = 2 };

    /// Receives a difference as a line without its end, or what could not be compared and why.
    using Report = std::function<void(const std::string& text)>;

    TreeComparison(Report difference, Report trouble)
        : reportDifference_(std::move(difference)),
          reportTrouble_(std::move(trouble)),
          left_(bufferSize),
          right_(bufferSize) {}

    /// Of a folder and another file, the file of the same name in the folder is compared. After trouble with one
    /// file the others are still compared.
    Result compare(const std::string& left, const std::string& right);

  private:
    /// Two folders of which some names are still to be compared.
    struct Folder {
        std::string left;
        std::string right;
        std::vector<std::string> leftNames;
        std::vector<std::string> rightNames;
        std::size_t nextLeft = 0;
        std::size_t nextRight = 0;
    };

    static constexpr std::size_t bufferSize = std::size_t{1} << 17;

    void compareNext();
    void comparePair(const std::string& left, const std::string& right);
    void compareExisting(const std::string& left, const struct stat& leftStatus, const std::string& right,
                         const struct stat& rightStatus);
    void enter(const std::string& left, const std::string& right);
    void compareLinks(const std::string& left, const std::string& right);
    void compareFiles(const std::string& left, const std::string& right);

    // These give nothing after trouble, which they report.
    std::optional<std::vector<std::string>> names(const std::string& folder);
    std::optional<std::string> linkText(const std::string& link);
    std::optional<UniqueDescriptor> opened(const std::string& file);
    std::optional<std::string_view> filled(std::vector<char>& buffer, int descriptor, const std::string& file);

    void differ(const std::string& text);
    /// Reports the system's refusal.
    std::nullopt_t fail(const std::string& path);

    Report reportDifference_;
    Report reportTrouble_;
    Result result_ = Result::same;
    std::vector<Folder> folders_;
    std::vector<char> left_;
    std::vector<char> right_;
};

} // namespace corvane::Tools
