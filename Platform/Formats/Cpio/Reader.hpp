#pragma once

#include "Platform/Formats/ByteSource.hpp"
#include "Platform/Formats/Cpio/Entry.hpp"

#include <cstdint>
#include <optional>
#include <string>

namespace corvane::Cpio {

/// Reads an archive in the portable octal form ("odc", magic 070707) or the hexadecimal one ("newc", magic 070701, and
/// 070702 with checksums), entry by entry. All operations throw FormatError, and what the source throws.
class Reader : public ByteSource {
  public:
    /// Most entries that an archive may have, and bytes in all their names: whoever keeps a list of them needs a bound.
    static constexpr std::uint64_t entryLimit = std::uint64_t{1} << 22;
    static constexpr std::uint64_t namesLimit = std::uint64_t{512} << 20;

    /// @param archive must outlive the reader
    explicit Reader(ByteSource& archive) : archive_(archive) {}

    /// The next entry; skips what is left of the current one's data. Nothing at the end of the archive, after which
    /// the source holds no more bytes.
    std::optional<Entry> next();

    /// The current entry's data.
    std::size_t read(std::span<char> buffer) override;

  private:
    enum class Form { unknown, octal, hexadecimal, checked };
    struct RawHeader;

    std::string take(std::size_t count);
    RawHeader readHeader();
    std::string readName(std::size_t size);
    std::string readLinkTarget();
    void skipData();
    void skipPadding(std::uint64_t length);
    void requireZerosToTheEnd();
    void countChecksum(std::span<const char> bytes);
    [[noreturn]] void fail(const std::string& problem) const;

    ByteSource& archive_;
    Form form_ = Form::unknown;
    std::uint64_t offset_ = 0;
    /// Data of the current entry: declared, and not yet read.
    std::uint64_t length_ = 0;
    std::uint64_t left_ = 0;
    bool isChecked_ = false;
    std::uint32_t expectedChecksum_ = 0;
    std::uint32_t checksum_ = 0;
    std::uint64_t entryCount_ = 0;
    std::uint64_t namesSize_ = 0;
    bool ended_ = false;
};

} // namespace corvane::Cpio
