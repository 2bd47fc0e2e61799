#include "Tests/Platform/Formats/Udif/TestImage.hpp"

#include "Platform/Formats/BigEndian.hpp"
#include "Platform/Formats/Digest.hpp"
#include "Platform/Formats/Gzip/Writer.hpp"
#include "Support/PropertyList.hpp"
#include "Tests/TestSupport.hpp"

#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <zlib.h>

#include <algorithm>

namespace corvane::TestImage {
namespace {

using Udif::ChunkKind;

std::string big(std::uint64_t number, std::size_t width) {
    std::string bytes;
    appendBigEndian(bytes, number, width);
    return bytes;
}

std::string little(std::uint64_t number, std::size_t width) {
    std::string bytes = big(number, width);
    std::reverse(bytes.begin(), bytes.end());
    return bytes;
}

std::string padded(std::string bytes, std::size_t size) {
    bytes.resize(size, '\0');
    return bytes;
}

std::string wholeSectors(const std::string& bytes) { return padded(bytes, (bytes.size() + 511) / 512 * 512); }

std::uint32_t crc(const std::string& bytes, std::uint32_t before = 0) {
    return static_cast<std::uint32_t>(crc32_z(before, reinterpret_cast<const Bytef*>(bytes.data()), bytes.size()));
}

std::string checksum(std::uint32_t value) { return big(2, 4) + big(32, 4) + padded(big(value, 4), 128); }

std::string adc(const std::string& plain) {
    std::string stored;
    for (std::size_t at = 0; at < plain.size(); at += 128) {
        const std::string run = plain.substr(at, 128);
        stored += static_cast<char>(0x80 | (run.size() - 1));
        stored += run;
    }
    return stored;
}

std::string storedChunk(ChunkKind kind, const std::string& plain) {
    switch (kind) {
    case ChunkKind::raw:
        return plain;
    case ChunkKind::adc:
        return adc(plain);
    case ChunkKind::zlib:
        return Gzip::compressed(plain, Gzip::Framing::zlib, 6);
    case ChunkKind::bzip2:
        return TestSupport::run({"bzip2", "-c"}, {.input = plain}).output;
    case ChunkKind::lzfse:
        return "bvx-" + little(plain.size(), 4) + plain + "bvx$";
    case ChunkKind::xz:
        return TestSupport::run({"xz", "-c"}, {.input = plain}).output;
    default:
        return {};
    }
}

class ImageWriter {
  public:
    explicit ImageWriter(const Options& options) : options_(options), data_(options.dataOffset, '-') {}

    void add(const Table& table) {
        const std::string bytes = wholeSectors(table.bytes);
        std::string chunks;
        std::uint32_t count = 0;
        std::uint32_t tableCrc = 0;
        for (std::size_t at = 0; at < bytes.size(); at += options_.chunkSize, ++count) {
            const ChunkKind kind = table.kinds[count % table.kinds.size()];
            std::string plain = bytes.substr(at, options_.chunkSize);
            chunks += chunk(kind, at / 512, plain.size() / 512, storedChunk(kind, plain));
            if (kind == ChunkKind::zero) plain.assign(plain.size(), '\0');
            if (kind != ChunkKind::ignore) tableCrc = crc(plain, tableCrc);
        }
        chunks +=
            chunk(ChunkKind::comment, bytes.size() / 512, 0, "") + chunk(ChunkKind::end, bytes.size() / 512, 0, "");
        tableCrc += options_.tableError;
        const std::string head = "mish" + big(1, 4) + big(sectors_, 8) + big(bytes.size() / 512, 8) +
                                 big(options_.dataOffset, 8) + big(2056, 4) + padded("", 28);
        addResource("blkx", static_cast<int>(tables_++), head + checksum(tableCrc) + big(count + 2, 4) + chunks,
                    table.name);
        tableChecksums_ += big(tableCrc, 4);
        sectors_ += bytes.size() / 512;
    }

    std::string finish() {
        for (const auto& [key, data] : options_.resources) addResource(key.first, key.second, data, "");
        PropertyList::Dictionary types;
        for (auto& [type, items] : resources_) types[type] = {items};
        const std::string list = PropertyList::serializedXML({PropertyList::Dictionary{{"resource-fork", {types}}}});
        const std::uint64_t listAt = data_.size();
        const std::uint64_t signatureAt = listAt + list.size();
        const bool isSigned = !options_.codeSignature.empty();
        std::string trailer = "koly" + big(4, 4) + big(512, 4) + big(1, 4) + big(0, 8) + big(0, 8) +
                              big(data_.size(), 8) + padded("", 16) + big(1, 4) + big(1, 4) + padded("", 16) +
                              checksum(crc(data_) + options_.dataError) + big(listAt, 8) + big(list.size(), 8);
        trailer = padded(trailer, 296) + big(isSigned ? signatureAt : 0, 8) + big(options_.codeSignature.size(), 8);
        trailer = padded(trailer, 352) + checksum(crc(tableChecksums_) + options_.masterError) + big(1, 4);
        return data_ + list + options_.codeSignature + padded(trailer + big(sectors_, 8), 512);
    }

  private:
    std::string chunk(ChunkKind kind, std::uint64_t first, std::uint64_t count, const std::string& stored) {
        const std::uint64_t offset = data_.size() - options_.dataOffset;
        data_ += stored;
        return big(static_cast<std::uint32_t>(kind), 4) + big(0, 4) + big(first, 8) + big(count, 8) + big(offset, 8) +
               big(stored.size(), 8);
    }

    void addResource(const std::string& type, int number, const std::string& data, const std::string& name) {
        resources_[type].push_back({PropertyList::Dictionary{{"Attributes", {std::string("0x0050")}},
                                                             {"Data", {PropertyList::Data{data}}},
                                                             {"ID", {std::to_string(number)}},
                                                             {"Name", {name}}}});
    }

    const Options& options_;
    std::string data_;
    std::map<std::string, PropertyList::Array> resources_;
    std::string tableChecksums_;
    std::uint64_t sectors_ = 0;
    std::size_t tables_ = 0;
};

/// The bytes of an identifier, its first three groups reversed.
std::string guidBytes(std::string text) {
    std::erase(text, '-');
    std::string bytes = fromHexadecimal(text).value();
    std::reverse(bytes.begin(), bytes.begin() + 4);
    std::reverse(bytes.begin() + 4, bytes.begin() + 6);
    std::reverse(bytes.begin() + 6, bytes.begin() + 8);
    return bytes;
}

std::string utf16(const std::string& ascii) {
    std::string bytes;
    for (const char character : ascii) bytes += std::string{character, '\0'};
    return bytes;
}

std::string encryptedBytes(const EVP_CIPHER* cipher, const std::string& key, const std::string& initialVector,
                           const std::string& plain, bool pads) {
    std::string bytes(plain.size() + 32, '\0');
    const auto in = [](const std::string& text) { return reinterpret_cast<const unsigned char*>(text.data()); };
    auto* const out = reinterpret_cast<unsigned char*>(bytes.data());
    EVP_CIPHER_CTX* const context = EVP_CIPHER_CTX_new();
    int count = 0;
    int rest = 0;
    EVP_EncryptInit_ex(context, cipher, nullptr, in(key), in(initialVector));
    EVP_CIPHER_CTX_set_padding(context, pads ? 1 : 0);
    EVP_EncryptUpdate(context, out, &count, in(plain), static_cast<int>(plain.size()));
    EVP_EncryptFinal_ex(context, out + count, &rest);
    EVP_CIPHER_CTX_free(context);
    bytes.resize(static_cast<std::size_t>(count + rest));
    return bytes;
}

} // namespace

std::string image(const std::vector<Table>& tables, const Options& options) {
    ImageWriter writer(options);
    for (const Table& table : tables) writer.add(table);
    return writer.finish();
}

std::string image(const std::string& disk, ChunkKind kind) { return image({{disk, {kind}}}); }

std::string guidDisk(const std::string& volume, const std::string& type) {
    const std::string content = wholeSectors(volume);
    const std::uint64_t first = 40;
    std::string header = "EFI PART" + little(0x10000, 4) + little(92, 4);
    header = padded(header, 72) + little(2, 8) + little(128, 4) + little(128, 4);
    const std::string entry = guidBytes(type) + std::string(16, '\1') + little(first, 8) +
                              little(first + content.size() / 512 - 1, 8) + little(0, 8) + utf16("disk image");
    const std::string start = padded(padded("", 512) + header, 1024) + entry;
    return padded(start, first * 512) + content + padded("", 33 * 512);
}

std::string appleDisk(const std::string& volume, const std::string& type) {
    const std::string content = wholeSectors(volume);
    const auto entry = [](std::uint64_t first, std::uint64_t count, const std::string& name, const std::string& kind) {
        return padded(
            "PM" + big(0, 2) + big(2, 4) + big(first, 4) + big(count, 4) + padded(name, 32) + padded(kind, 32), 512);
    };
    const std::string start = padded("ER" + big(512, 2), 512) + entry(1, 63, "Apple", "Apple_partition_map") +
                              entry(64, content.size() / 512, "disk image", type);
    return padded(start, std::size_t{64} * 512) + content;
}

std::string encrypted(const std::string& image, const std::string& password, unsigned keyBits) {
    const std::string key(keyBits / 8, 'k');
    const std::string macKey(20, 'm');
    const std::string salt(20, 's');
    const std::string wrapVector(8, 'i');
    constexpr int iterations = 1000;
    std::string wrapKey(24, '\0');
    PKCS5_PBKDF2_HMAC_SHA1(password.data(), static_cast<int>(password.size()),
                           reinterpret_cast<const unsigned char*>(salt.data()), static_cast<int>(salt.size()),
                           iterations, 24, reinterpret_cast<unsigned char*>(wrapKey.data()));
    const std::string wrapped =
        encryptedBytes(EVP_des_ede3_cbc(), wrapKey, wrapVector, key + macKey + std::string("CKIE\0", 5), true);
    const std::string entry = big(103, 4) + big(0, 4) + big(iterations, 4) + big(salt.size(), 4) + padded(salt, 32) +
                              big(8, 4) + padded(wrapVector, 32) + big(192, 4) + big(17, 4) + big(7, 4) + big(6, 4) +
                              big(wrapped.size(), 4) + wrapped;
    constexpr std::uint64_t dataAt = 4096;
    const std::string head = "encrcdsa" + big(2, 4) + big(16, 4) + big(5, 4) + big(0x80000001, 4) + big(keyBits, 4) +
                             big(91, 4) + big(160, 4) + std::string(16, 'u') + big(512, 4) + big(image.size(), 8) +
                             big(dataAt, 8) + big(1, 4) + big(1, 4) + big(96, 8) + big(entry.size(), 8);
    std::string bytes = padded(padded(head, 96) + entry, dataAt);
    const std::string plain = wholeSectors(image);
    for (std::size_t at = 0; at < plain.size(); at += 512) {
        const std::string number = big(at / 512, 4);
        std::string vector(20, '\0');
        HMAC(EVP_sha1(), macKey.data(), static_cast<int>(macKey.size()),
             reinterpret_cast<const unsigned char*>(number.data()), number.size(),
             reinterpret_cast<unsigned char*>(vector.data()), nullptr);
        const EVP_CIPHER* const cipher = keyBits == 128 ? EVP_aes_128_cbc() : EVP_aes_256_cbc();
        bytes += encryptedBytes(cipher, key, vector, plain.substr(at, 512), false);
    }
    return bytes;
}

} // namespace corvane::TestImage
