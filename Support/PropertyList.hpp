#pragma once

#include "Support/FileURL.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

/// Property lists, in XML or binary form, as trees of plain values. The reading is our own: the usual library follows
/// nested lists by recursion without a bound, and hostile lists end the process that uses it.
namespace corvane::PropertyList {

class Error : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

struct Data {
    std::string bytes;
    bool operator==(const Data&) const = default;
};

constexpr std::int64_t secondsFrom1970To2001 = 978307200;

/// A point in time, in seconds since 2001-01-01 00:00 UTC.
struct Date {
    double seconds = 0;
    bool operator==(const Date&) const = default;
};

/// A reference within an archive of objects; only binary lists have it.
struct UID {
    std::uint64_t number = 0;
    bool operator==(const UID&) const = default;
};

struct Value;
using Array = std::vector<Value>;
/// Of a key that stands there twice, the last value counts.
using Dictionary = std::map<std::string, Value, std::less<>>;

struct Value {
    /// `std::uint64_t` only holds integers above the largest signed one. Text is UTF-8.
    std::variant<std::string, bool, std::int64_t, std::uint64_t, double, Date, Data, UID, Array, Dictionary> content;

    /// The content when it is of the type; else null.
    template <class Type>
    const Type* get() const {
        return std::get_if<Type>(&content);
    }
    /// The value of a key; null when there is none, or this is no dictionary.
    const Value* find(std::string_view key) const;
    bool operator==(const Value&) const;
};

/// Largest list that is read, in bytes.
constexpr std::size_t sizeLimit = std::size_t{64} << 20;
/// Most levels of arrays and dictionaries. A list in XML ends sooner, at the limit of the XML reader.
constexpr std::size_t depthLimit = 512;

/// @param name how errors call the list, for example its path
/// @throws Error for anything that is not one list, or exceeds a limit
Value parse(std::string_view bytes, const std::string& name);
/// @throws FileError, Error
Value read(const FileURL& url);

/// The list as XML, in the layout of the platform's own lists: keys sorted by their bytes, a tab a level, a final line
/// feed. A UID becomes the dictionary of the key CF$UID that stands for it in XML; dates lose fractions of a second.
/// @throws Error for text that XML cannot hold, a date outside the years 0 to 9999, more levels than `depthLimit`
std::string serializedXML(const Value& value);

/// The text with U+FFFD in the place of each character that XML cannot hold and of each sequence that is not UTF-8.
std::string representable(std::string_view text);

} // namespace corvane::PropertyList
