#include "Platform/Tools/MountAnswers.hpp"

#include "Platform/Mounts/Attachment.hpp"
#include "Support/FileError.hpp"
#include "Support/Text.hpp"

#include <algorithm>

namespace corvane::Tools {
namespace {

std::string printableLines(std::string text) {
    std::replace(text.begin(), text.end(), '\t', ' ');
    std::string result;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        result += Text::printable(std::string_view(text).substr(start, end - start)) + "\n";
        start = end + 1;
    }
    return result;
}

} // namespace

bool agreesToLicence(const std::string& licence, const LineSource& ask) {
    const std::string text =
        licence.empty() ? "The image has a licence agreement of a kind that cannot be shown." : licence;
    const std::optional<std::string> answer = ask(printableLines(text) + "\nAgree Y/N? ");
    if (!answer) throw ConsentError("the image has a licence agreement that must be accepted");
    const std::string word = Text::lowercased(Text::trimmingWhitespaceAndNewlines(*answer));
    return word == "y" || word == "yes";
}

std::string passwordPrompt(const FileURL& image) {
    return "Password of " + Text::printable(lastPathComponent(image)) + ": ";
}

std::string attachFailure(const FileURL& image, const std::exception& error) {
    const bool namesFile =
        dynamic_cast<const ConsentError*>(&error) != nullptr || dynamic_cast<const FileError*>(&error) != nullptr;
    return Text::printable((namesFile ? "" : image.string() + ": ") + error.what());
}

} // namespace corvane::Tools
