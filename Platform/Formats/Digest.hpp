#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

struct evp_md_ctx_st;

namespace corvane {

enum class DigestKind { md5, sha1, sha256, sha384, sha512 };

/// The kind of a name such as "sha1", in either case; nothing for any other name.
std::optional<DigestKind> digestKind(std::string_view name);
/// The lower-case name.
std::string_view digestName(DigestKind kind);
/// Length of a digest in bytes.
std::size_t digestSize(DigestKind kind);

/// Computes a digest piece by piece. For one thread at a time.
class Hasher {
  public:
    explicit Hasher(DigestKind kind);

    void update(std::string_view bytes);
    /// The digest as bytes, not as text. Nothing but `restart` may follow.
    std::string finish();
    /// Begins a new digest of the same kind: much cheaper than a new hasher, for those with many small ones.
    void restart();

  private:
    struct Free {
        void operator()(evp_md_ctx_st* context) const;
    };
    std::unique_ptr<evp_md_ctx_st, Free> context_;
};

/// The digest of bytes that are all in memory.
std::string digest(DigestKind kind, std::string_view bytes);

/// Lower-case hexadecimal text of bytes.
std::string hexadecimal(std::string_view bytes);
/// The bytes of hexadecimal text in either case; nothing when it is none.
std::optional<std::string> fromHexadecimal(std::string_view text);

} // namespace corvane
