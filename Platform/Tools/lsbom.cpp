// Lists what a Bom says about each path.

#include "Platform/Formats/Bom/Reader.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Platform/Tools/Tool.hpp"
#include "Support/FileManager.hpp"

#include <charconv>

namespace corvane::Tools {
namespace {

constexpr std::string_view knownFields = "fmugsc";
constexpr std::size_t outputBuffer = std::size_t{1} << 16;

std::string octal(unsigned number) {
    char digits[16];
    const auto result = std::to_chars(digits, digits + sizeof digits, number, 8);
    return {digits, result.ptr};
}

/// Nothing for the size and the checksum of a directory.
std::string field(const Bom::Entry& entry, char letter) {
    const bool isDirectory = entry.type == Bom::EntryType::directory;
    switch (letter) {
    case 'f':
        return entry.path == "." ? "." : "./" + entry.path;
    case 'm':
        return octal(entry.mode);
    case 'u':
        return std::to_string(entry.userID);
    case 'g':
        return std::to_string(entry.groupID);
    case 's':
        return isDirectory ? "" : std::to_string(entry.size);
    default:
        return isDirectory ? "" : std::to_string(entry.checksum);
    }
}

std::string line(const Bom::Entry& entry, const std::string& letters) {
    std::string text;
    for (const char letter : letters) text += field(entry, letter) + '\t';
    text.back() = '\n';
    return text;
}

int list(const std::string& file, const std::string& letters) {
    const std::string bytes = FileManager::readFile(file, Bom::Reader::sizeLimit);
    try {
        Bom::Reader reader(bytes);
        std::string lines;
        while (const auto entry = reader.next()) {
            lines += line(*entry, letters);
            if (lines.size() < outputBuffer) continue;
            print(lines);
            lines.clear();
        }
        print(lines);
        return 0;
    } catch (const FormatError& error) {
        printError("lsbom: " + file + ": " + error.what() + "\n");
        return 1;
    }
}

} // namespace

int lsbom(const Arguments& arguments) {
    const bool known = arguments.size() == 3 && arguments[0] == "-p" && !arguments[1].empty() &&
                       arguments[1].find_first_not_of(knownFields) == std::string::npos;
    if (!known) throw UsageError("Usage: lsbom -p [fmugsc] BOM");
    return list(arguments[2], arguments[1]);
}

} // namespace corvane::Tools
