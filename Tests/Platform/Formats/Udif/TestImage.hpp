#pragma once

#include "Platform/Formats/Udif/BlockTable.hpp"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

/// Writes disk images for tests.
namespace corvane::TestImage {

/// The bytes of a part of the disk, filled up to whole sectors, and how its chunks are stored. Chunks of empty kinds
/// are read as zeros whatever the bytes are.
struct Table {
    std::string bytes;
    /// Take turns.
    std::vector<Udif::ChunkKind> kinds{Udif::ChunkKind::zlib};
    std::string name = "whole disk (Apple_HFS : 0)";
};

struct Options {
    std::uint64_t chunkSize = 1 << 20;
    /// Resources beside the tables: a type, a number, the data.
    std::vector<std::pair<std::pair<std::string, int>, std::string>> resources;
    std::string codeSignature;
    /// Added to the checksums of the tables, of the whole and of the data fork, to spoil them.
    std::uint32_t tableError = 0;
    std::uint32_t masterError = 0;
    std::uint32_t dataError = 0;
    /// Bytes before the first chunk, which the offsets of the tables account for.
    std::uint64_t dataOffset = 0;
};

/// An image of tables that follow one another.
std::string image(const std::vector<Table>& tables, const Options& options = {});
/// An image of one table.
std::string image(const std::string& disk, Udif::ChunkKind kind = Udif::ChunkKind::zlib);

/// A disk with a GUID map of one part, at sector 40, of a type in text form.
std::string guidDisk(const std::string& volume, const std::string& type = "48465300-0000-11AA-AA11-00306543ECAC");
/// A disk with an Apple map of itself and one part, at sector 64.
std::string appleDisk(const std::string& volume, const std::string& type = "Apple_HFS");

/// The image in an encrypted one.
/// @param keyBits 128 or 256
std::string encrypted(const std::string& image, const std::string& password, unsigned keyBits = 256);

} // namespace corvane::TestImage
