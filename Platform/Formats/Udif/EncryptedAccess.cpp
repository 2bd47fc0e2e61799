#include "Platform/Formats/Udif/EncryptedAccess.hpp"

#include "Platform/Formats/BigEndian.hpp"
#include "Platform/Formats/ByteCursor.hpp"
#include "Platform/Formats/Udif/Trailer.hpp"

#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/params.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <new>
#include <optional>
#include <vector>

namespace corvane::Udif {
namespace {

constexpr std::string_view magic = "encrcdsa";
constexpr std::string_view format = "encrypted disk image";
/// As the header numbers algorithms.
constexpr std::uint32_t aes = 0x80000001;
constexpr std::uint32_t chainedBlocks = 5;
constexpr std::uint32_t passwordEntry = 1;
constexpr std::uint32_t pbkdf2 = 103;
constexpr std::uint32_t tripleDes = 17;

constexpr std::uint32_t entryLimit = 64;
constexpr std::uint64_t entrySizeLimit = 1 << 16;
/// Of all entries: some seconds of work, which nothing interrupts. Makers use less than a million for each.
constexpr std::uint64_t iterationLimit = 20'000'000;
constexpr std::uint32_t blockSizeLimit = 1 << 20;

/// What is read from the file at once, unless a block is larger.
constexpr std::uint64_t pieceSize = 1 << 16;

constexpr std::size_t aesBlock = 16;
constexpr std::size_t tripleDesKeySize = 24;
constexpr std::size_t tripleDesBlock = 8;
constexpr std::size_t macKeySize = 20;
/// Ends the unwrapped keys.
constexpr std::string_view keyMark{"CKIE\0", 5};

unsigned char* bytesOf(std::span<char> bytes) { return reinterpret_cast<unsigned char*>(bytes.data()); }
const unsigned char* bytesOf(std::string_view bytes) { return reinterpret_cast<const unsigned char*>(bytes.data()); }

struct FreeCipher {
    void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
};
using Cipher = std::unique_ptr<EVP_CIPHER_CTX, FreeCipher>;

Cipher decryption(const EVP_CIPHER* kind, std::string_view key) {
    Cipher cipher(EVP_CIPHER_CTX_new());
    if (!cipher || EVP_DecryptInit_ex(cipher.get(), kind, nullptr, bytesOf(key), nullptr) != 1) throw std::bad_alloc();
    return cipher;
}

struct FreeMac {
    void operator()(EVP_MAC* mac) const { EVP_MAC_free(mac); }
    void operator()(EVP_MAC_CTX* context) const { EVP_MAC_CTX_free(context); }
};
using Mac = std::unique_ptr<EVP_MAC_CTX, FreeMac>;

Mac hmacOfSha1() {
    const std::unique_ptr<EVP_MAC, FreeMac> kind(EVP_MAC_fetch(nullptr, "HMAC", nullptr));
    Mac mac(kind ? EVP_MAC_CTX_new(kind.get()) : nullptr);
    std::string digest = "SHA1";
    const std::array parameters{OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, digest.data(), 0),
                                OSSL_PARAM_construct_end()};
    if (!mac || EVP_MAC_CTX_set_params(mac.get(), parameters.data()) != 1) throw std::bad_alloc();
    return mac;
}

/// Keys in memory that is wiped when they are done with.
struct Secret {
    std::string bytes;
    explicit Secret(std::size_t size) : bytes(size, '\0') {}
    Secret(const Secret&) = delete;
    Secret& operator=(const Secret&) = delete;
    ~Secret() { OPENSSL_cleanse(bytes.data(), bytes.size()); }
};

/// How a password unwraps the keys.
struct PasswordEntry {
    std::uint32_t iterations = 0;
    std::string salt;
    std::string initialVector;
    std::string wrapped;

    static PasswordEntry parse(std::string_view bytes);
    /// Both keys and the mark; false when the password is another one.
    bool unwrap(std::string_view password, Secret& keys) const;
};

std::string_view sized(ByteCursor& cursor, std::size_t room) {
    const std::uint32_t size = cursor.u32BigEndian();
    if (size > room) cursor.fail("expected at most " + std::to_string(room) + " bytes, found " + std::to_string(size));
    return cursor.bytes(room).substr(0, size);
}

PasswordEntry PasswordEntry::parse(std::string_view bytes) {
    ByteCursor cursor(bytes, format);
    if (cursor.u32BigEndian() != pbkdf2) cursor.fail("expected a key made by PBKDF2, found another kind");
    cursor.skip(4); // the random generator
    PasswordEntry entry;
    entry.iterations = cursor.u32BigEndian();
    if (entry.iterations == 0 || entry.iterations > iterationLimit) cursor.fail("found too many or no iterations");
    entry.salt = sized(cursor, 32);
    entry.initialVector = sized(cursor, 32);
    const std::uint32_t keyBits = cursor.u32BigEndian();
    const std::uint32_t algorithm = cursor.u32BigEndian();
    if (keyBits != 8 * tripleDesKeySize || algorithm != tripleDes || entry.initialVector.size() != tripleDesBlock) {
        cursor.fail("expected keys wrapped with triple DES, found another kind");
    }
    cursor.skip(8); // padding and mode
    const std::uint32_t size = cursor.u32BigEndian();
    entry.wrapped = cursor.bytes(size);
    return entry;
}

bool PasswordEntry::unwrap(std::string_view password, Secret& keys) const {
    Secret key(tripleDesKeySize);
    if (PKCS5_PBKDF2_HMAC_SHA1(password.data(), static_cast<int>(password.size()), bytesOf(salt),
                               static_cast<int>(salt.size()), static_cast<int>(iterations), tripleDesKeySize,
                               bytesOf(std::span(key.bytes))) != 1) {
        throw std::bad_alloc();
    }
    const Cipher cipher = decryption(EVP_des_ede3_cbc(), key.bytes);
    Secret plain(wrapped.size() + tripleDesBlock);
    int count = 0;
    int rest = 0;
    unsigned char* const to = bytesOf(std::span(plain.bytes));
    if (EVP_DecryptInit_ex(cipher.get(), nullptr, nullptr, nullptr, bytesOf(initialVector)) != 1 ||
        EVP_DecryptUpdate(cipher.get(), to, &count, bytesOf(wrapped), static_cast<int>(wrapped.size())) != 1 ||
        EVP_DecryptFinal_ex(cipher.get(), to + count, &rest) != 1) {
        return false;
    }
    const std::string_view found(plain.bytes.data(), static_cast<std::size_t>(count + rest));
    if (found.size() != keys.bytes.size() || !found.ends_with(keyMark)) return false;
    std::memcpy(keys.bytes.data(), found.data(), found.size());
    return true;
}

} // namespace

struct EncryptedAccess::Header {
    std::uint32_t keyBits = 0;
    std::uint32_t blockSize = 0;
    std::uint64_t dataSize = 0;
    std::uint64_t dataOffset = 0;
    std::vector<PasswordEntry> passwords;

    static Header read(const RandomAccess& file);
    void readEntries(const RandomAccess& file, std::uint32_t count);
    void requireSound(const RandomAccess& file) const;
};

void EncryptedAccess::Header::readEntries(const RandomAccess& file, std::uint32_t count) {
    constexpr std::uint64_t entriesAt = 76;
    constexpr std::uint64_t entrySize = 20;
    if (count > entryLimit) throw FormatError(format, entriesAt - 4, "expected at most 64 keys, found more");
    const std::string entries = readExtent(file, {entriesAt, count * entrySize}, entryLimit * entrySize);
    ByteCursor cursor(entries, format, entriesAt);
    std::uint64_t iterations = 0;
    for (; count > 0; --count) {
        const std::uint32_t type = cursor.u32BigEndian();
        const std::uint64_t offset = cursor.u64BigEndian();
        const std::uint64_t length = cursor.u64BigEndian();
        if (type != passwordEntry) continue;
        passwords.push_back(PasswordEntry::parse(readExtent(file, {offset, length}, entrySizeLimit)));
        iterations += passwords.back().iterations;
        if (iterations > iterationLimit) cursor.fail("found too many iterations");
    }
    if (passwords.empty()) throw FormatError("encrypted disk image: no password opens it, only a certificate");
}

void EncryptedAccess::Header::requireSound(const RandomAccess& file) const {
    const bool isSound = (keyBits == 128 || keyBits == 256) && blockSize % aesBlock == 0 && blockSize != 0 &&
                         blockSize <= blockSizeLimit && dataOffset <= file.size() &&
                         dataSize <= file.size() - dataOffset;
    if (!isSound) throw FormatError(format, 0, "expected sizes of keys, blocks and data that fit the file");
}

EncryptedAccess::Header EncryptedAccess::Header::read(const RandomAccess& file) {
    constexpr std::uint64_t headerSize = 76;
    const std::string bytes = readExtent(file, {0, headerSize}, headerSize);
    ByteCursor cursor(bytes, format);
    cursor.expect(magic);
    if (const std::uint32_t version = cursor.u32BigEndian(); version != 2) {
        cursor.fail("expected version 2, found " + std::to_string(version));
    }
    cursor.skip(4); // size of the initial vectors
    if (cursor.u32BigEndian() != chainedBlocks || cursor.u32BigEndian() != aes) {
        cursor.fail("expected AES in chained blocks, found another cipher");
    }
    Header header;
    header.keyBits = cursor.u32BigEndian();
    cursor.skip(4 + 4 + 16); // the random generator, bits of the other key, an identifier
    header.blockSize = cursor.u32BigEndian();
    header.dataSize = cursor.u64BigEndian();
    header.dataOffset = cursor.u64BigEndian();
    header.requireSound(file);
    header.readEntries(file, cursor.u32BigEndian());
    return header;
}

bool isEncrypted(const RandomAccess& file) {
    return file.size() >= magic.size() && readExtent(file, {0, magic.size()}, magic.size()) == magic;
}

EncryptedAccess::EncryptedAccess(std::unique_ptr<RandomAccess> file, std::string_view password)
    : file_(std::move(file)), header_(std::make_unique<Header>(Header::read(*file_))) {
    const std::size_t cipherKeySize = header_->keyBits / 8;
    Secret keys(cipherKeySize + macKeySize + keyMark.size());
    const auto opens = [&](const PasswordEntry& entry) { return entry.unwrap(password, keys); };
    if (std::none_of(header_->passwords.begin(), header_->passwords.end(), opens)) throw WrongPassword();
    cipherKey_ = keys.bytes.substr(0, cipherKeySize);
    macKey_ = keys.bytes.substr(cipherKeySize, macKeySize);
}

EncryptedAccess::~EncryptedAccess() {
    OPENSSL_cleanse(cipherKey_.data(), cipherKey_.size());
    OPENSSL_cleanse(macKey_.data(), macKey_.size());
}

std::uint64_t EncryptedAccess::size() const { return header_->dataSize; }

/// Made for every read: too slow to make for every block, and not to be shared by threads.
struct EncryptedAccess::Contexts {
    Cipher cipher;
    Mac mac;
};

void EncryptedAccess::decryptBlock(const Contexts& contexts, std::uint64_t number, std::span<char> stored,
                                   std::span<char> plain) const {
    std::string counter;
    appendBigEndian(counter, number, 4);
    std::array<unsigned char, EVP_MAX_MD_SIZE> initial{};
    EVP_CIPHER_CTX* const cipher = contexts.cipher.get();
    EVP_MAC_CTX* const mac = contexts.mac.get();
    int count = 0;
    const auto size = static_cast<int>(stored.size());
    if (EVP_MAC_init(mac, bytesOf(std::string_view(macKey_)), macKey_.size(), nullptr) != 1 ||
        EVP_MAC_update(mac, bytesOf(std::string_view(counter)), counter.size()) != 1 ||
        EVP_MAC_final(mac, initial.data(), nullptr, initial.size()) != 1 ||
        EVP_DecryptInit_ex(cipher, nullptr, nullptr, nullptr, initial.data()) != 1 ||
        EVP_CIPHER_CTX_set_padding(cipher, 0) != 1 ||
        EVP_DecryptUpdate(cipher, bytesOf(plain), &count, bytesOf(stored), size) != 1 || count != size) {
        throw FormatError(format, header_->dataOffset + number * header_->blockSize, "a block cannot be decrypted");
    }
}

void EncryptedAccess::read(std::uint64_t offset, std::span<char> buffer) const {
    if (offset > size() || buffer.size() > size() - offset) {
        throw FormatError(format, offset, "expected " + std::to_string(buffer.size()) + " bytes, found the end");
    }
    const std::uint64_t blockSize = header_->blockSize;
    const Contexts contexts{decryption(header_->keyBits == 128 ? EVP_aes_128_cbc() : EVP_aes_256_cbc(), cipherKey_),
                            hmacOfSha1()};
    std::vector<char> stored(std::max<std::uint64_t>(pieceSize / blockSize, 1) * blockSize);
    std::vector<char> plain(stored.size());
    while (!buffer.empty()) {
        const std::uint64_t start = offset / blockSize * blockSize;
        const std::uint64_t wanted = (offset - start + buffer.size() + blockSize - 1) / blockSize * blockSize;
        // The last block is filled up, unless the file ends before.
        const std::uint64_t left = file_->size() - header_->dataOffset - start;
        const std::span<char> piece(stored.data(),
                                    std::min({std::uint64_t{stored.size()}, wanted, left / aesBlock * aesBlock}));
        if (offset - start >= piece.size()) throw FormatError(format, offset, "expected a whole block, found the end");
        file_->read(header_->dataOffset + start, piece);
        for (std::size_t at = 0; at < piece.size(); at += blockSize) {
            const std::span<char> block = piece.subspan(at, std::min<std::size_t>(blockSize, piece.size() - at));
            decryptBlock(contexts, (start + at) / blockSize, block, std::span(plain).subspan(at));
        }
        const std::size_t count = std::min<std::uint64_t>(buffer.size(), piece.size() - (offset - start));
        std::memcpy(buffer.data(), plain.data() + (offset - start), count);
        buffer = buffer.subspan(count);
        offset += count;
    }
}

} // namespace corvane::Udif
