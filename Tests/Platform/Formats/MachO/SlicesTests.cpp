#include "Platform/Formats/Bom/ArchitectureChecksums.hpp"
#include "Platform/Formats/MachO/Slices.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace corvane::MachO {
namespace {

std::string number(std::uint64_t value, std::size_t width = 4) {
    std::string bytes;
    for (std::size_t at = width; at-- > 0;) bytes += static_cast<char>(value >> (8 * at) & 0xFF);
    return bytes;
}

std::string swapped(std::string bytes) {
    for (std::size_t at = 0; at + 4 <= bytes.size(); at += 4) std::reverse(&bytes[at], &bytes[at] + 4);
    return bytes;
}

std::string thin(std::uint32_t magic) {
    return number(magic) + number(0x01000007) + number(0x80000003) + number(2) + std::string(12, '\0');
}

std::string fat(const std::vector<Slice>& slices) {
    std::string bytes = number(0xCAFEBABE) + number(slices.size());
    for (const Slice& each : slices) {
        bytes += number(each.cpuType) + number(each.cpuSubtype) + number(each.offset) + number(each.size) + number(2);
    }
    return bytes;
}

std::string wideFat(const std::vector<Slice>& slices) {
    std::string bytes = number(0xCAFEBABF) + number(slices.size());
    for (const Slice& each : slices) {
        bytes += number(each.cpuType) + number(each.cpuSubtype) + number(each.offset, 8) + number(each.size, 8) +
                 number(2) + number(0);
    }
    return bytes;
}

const std::vector<Slice> two{{0x01000007, 3, 100, 400}, {0x0100000C, 2, 500, 500}};
const std::vector<Slice> large{{0x01000007, 3, 200, 400}, {0x0100000C, 2, std::uint64_t{5} << 32, 500}};

TEST(MachOSlices, areThoseOfTheHeader) {
    const std::vector<Slice> whole{{0x01000007, 0x80000003, 0, 1000}};
    const std::vector<Slice> atLimit(sliceLimit, Slice{18, 0, headerSize, 10});
    struct Case {
        const char* name;
        std::string front;
        std::uint64_t size;
        std::vector<Slice> expected;
    };
    const Case cases[] = {
        {"thin", thin(0xFEEDFACE), 1000, whole},
        {"thin of 64 bits", thin(0xFEEDFACF), 1000, whole},
        {"swapped", swapped(thin(0xFEEDFACE)), 1000, whole},
        {"swapped of 64 bits", swapped(thin(0xFEEDFACF)), 1000, whole},
        {"fat", fat(two), 1000, two},
        {"fat of 64 bits", wideFat(large), (std::uint64_t{5} << 32) + 500, large},
        {"as many as there may be", fat(atLimit), 1000, atLimit},
        {"as many wide ones", wideFat(atLimit), 1000, atLimit},
    };
    for (const Case& each : cases) EXPECT_TRUE(slices(each.front, each.size) == each.expected) << each.name;
}

TEST(MachOSlices, areNoneWhereTheHeaderIsNotToBeBelieved) {
    const std::pair<const char*, std::string> cases[] = {
        {"empty", ""},
        {"magic only", number(0xFEEDFACF)},
        {"header cut short", thin(0xFEEDFACF).substr(0, 27)},
        {"fat magic only", number(0xCAFEBABE)},
        {"fat header cut short", fat(two).substr(0, 47)},
        {"wide header cut short", wideFat(two).substr(0, 71)},
        {"text", "#!/bin/sh\necho a script that is long enough\n"},
        {"static library", "!<arch>\n#1/20           0           0     0     "},
        {"no slices", fat({})},
        {"too many", fat(std::vector<Slice>(sliceLimit + 1, two[0]))},
        {"Java class of the first version", number(0xCAFEBABE) + number(45) + std::string(2000, '\0')},
        {"one byte past the end", fat({two[0], {1, 2, 500, 501}})},
        {"begins past the end", fat({{1, 2, 1001, 0}})},
        {"end passes 64 bits", wideFat({{1, 2, 500, ~std::uint64_t{0} - 100}})},
        {"within the header", fat({{1, 2, 27, 10}})},
    };
    for (const auto& [name, front] : cases) EXPECT_TRUE(slices(front, 1000).empty()) << name;
}

} // namespace
} // namespace corvane::MachO
