// Runs a fuzz driver over the files of a folder, each in a buffer of its exact size so that a sanitizer sees every read
// past the end. Every seed is also replayed with single bytes damaged and cut short, in a fixed order.

#include "Support/FileManager.hpp"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void feed(const std::string& bytes) {
    const std::vector<std::uint8_t> exact(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(exact.data(), exact.size());
}

void feedDamaged(const std::string& bytes) {
    std::mt19937 random(1);
    const auto below = [&](std::size_t limit) { return static_cast<std::size_t>(random() % limit); };
    for (int round = 0; round < 300 && !bytes.empty(); ++round) {
        std::string damaged = bytes;
        for (std::size_t count = 1 + below(1 + bytes.size() / 200); count > 0; --count) {
            damaged[below(damaged.size())] = static_cast<char>(random());
        }
        if (round % 4 == 0) damaged.resize(below(damaged.size()));
        feed(damaged);
    }
}

} // namespace

int main(int count, char** arguments) {
    if (count != 2) return 64;
    try {
        int seeds = 0;
        for (const auto& url : corvane::FileManager::contentsOfDirectory(arguments[1])) {
            const std::string bytes = corvane::FileManager::readFile(url, 1 << 20);
            feed(bytes);
            feedDamaged(bytes);
            ++seeds;
        }
        std::printf("%d seeds replayed\n", seeds);
        return seeds > 0 ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
