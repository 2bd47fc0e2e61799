#include "Platform/Formats/Udif/Licence.hpp"

#include "Platform/Formats/ByteCursor.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Support/Text.hpp"

#include <algorithm>

namespace corvane::Udif {
namespace {

/// The resources of an agreement are numbered from here on.
constexpr int firstNumber = 5000;

const Resource* numbered(const Resources& resources, std::string_view type, int number) {
    const auto found = resources.find(type);
    if (found == resources.end()) return nullptr;
    const auto isIt = [&](const Resource& resource) { return resource.number == number; };
    const auto item = std::find_if(found->second.begin(), found->second.end(), isIt);
    return item != found->second.end() ? &*item : nullptr;
}

/// The languages: the region of the default one, then each region with the number of its texts and the width of its
/// characters. @return the number of the default one's texts; of the first's when the list tells nothing
int defaultNumber(std::string_view languages) try {
    ByteCursor cursor(languages, "LPic");
    const std::uint16_t region = cursor.u16BigEndian();
    int number = firstNumber;
    bool isFirst = true;
    for (std::uint16_t left = cursor.u16BigEndian(); left > 0; --left, isFirst = false) {
        const bool isDefault = cursor.u16BigEndian() == region;
        const int own = firstNumber + cursor.u16BigEndian();
        if (isFirst || isDefault) number = own;
        if (isDefault) break;
        cursor.skip(2);
    }
    return number;
} catch (const FormatError&) {
    return firstNumber;
}

std::string decodedText(std::string_view bytes) {
    const std::string text = Text::decodedUTF8(bytes);
    std::string result = text == bytes ? text : decodedMacRoman(bytes);
    std::replace(result.begin(), result.end(), '\r', '\n');
    return result;
}

} // namespace

std::optional<std::string> licenceText(const Resources& resources) {
    const auto languages = resources.find("LPic");
    if (languages == resources.end() || languages->second.empty()) return std::nullopt;
    const int number = defaultNumber(languages->second.front().data);
    for (const int candidate : {number, firstNumber}) {
        if (const Resource* text = numbered(resources, "TEXT", candidate)) return decodedText(text->data);
        if (const Resource* text = numbered(resources, "RTF ", candidate)) return plainTextOfRtf(text->data);
    }
    return std::string();
}

} // namespace corvane::Udif
