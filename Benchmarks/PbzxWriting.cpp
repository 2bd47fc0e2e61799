// Compresses standard input to standard output in pbzx form: PbzxWriting [THREADS]

#include "Platform/Formats/ByteSource.hpp"
#include "Platform/Formats/Pbzx/Writer.hpp"
#include "Support/WriteAll.hpp"

#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <vector>

using namespace corvane;

int main(int count, char** arguments) {
    try {
        const unsigned threads = count > 1 ? static_cast<unsigned>(std::strtoul(arguments[1], nullptr, 10)) : 0;
        const auto write = [](std::string_view bytes) {
            if (!writeAll(STDOUT_FILENO, bytes)) throw std::runtime_error("cannot write");
        };
        Pbzx::Writer writer(write, threads);
        std::vector<char> buffer(sourceBufferSize);
        ssize_t size = 0;
        while ((size = ::read(STDIN_FILENO, buffer.data(), buffer.size())) > 0) {
            writer.write({buffer.data(), static_cast<std::size_t>(size)});
        }
        if (size < 0) throw std::runtime_error("cannot read");
        writer.finish();
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "PbzxWriting: " << error.what() << "\n";
        return 1;
    }
}
