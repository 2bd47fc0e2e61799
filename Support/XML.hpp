#pragma once

#include "Support/FileURL.hpp"

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// XML documents as trees. Parsing never touches the network, reads no external entity or DTD, and refuses documents
/// whose entities expand without bound. Names and values are UTF-8.
namespace corvane::XML {

/// Malformed XML or a failed query; the text names the document, the line and what is wrong.
class Error : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// A node of a document: an element, attribute, text, comment ... It is a handle: it stays usable while its document
/// lives and the node is not removed, and copying it does not copy the node.
class Node {
  public:
    bool isElement() const;
    /// Name of an element or attribute as it stands, with its prefix if it has one.
    std::string name() const;
    /// The text below an element, or an attribute's value.
    std::string text() const;
    /// Replaces everything inside an element by one text.
    void setText(std::string_view text) const;

    std::optional<std::string> attribute(const std::string& name) const;
    /// All attributes in document order, by local name.
    std::vector<std::pair<std::string, std::string>> attributes() const;
    void setAttribute(const std::string& name, const std::string& value) const;

    std::optional<Node> parent() const;
    /// The child elements in document order.
    std::vector<Node> elements() const;
    /// The child elements of one name, in document order.
    std::vector<Node> elements(std::string_view name) const;
    std::optional<Node> firstElement(std::string_view name) const;

    Node appendElement(const std::string& name) const;
    Node appendElement(const std::string& name, std::string_view text) const;
    /// Adds a new element directly before, or directly behind, this one.
    Node insertElementBefore(const std::string& name) const;
    Node insertElementAfter(const std::string& name) const;
    /// Takes the node and everything below it out of the document and frees it.
    void remove() const;

    bool operator==(const Node&) const = default;

  private:
    friend class Document;
    explicit Node(void* node) : node_(node) {}
    void* node_;
};

class Document {
  public:
    /// Largest document that is read, in bytes.
    static constexpr std::size_t sizeLimit = std::size_t{64} << 20;
    /// Most elements that may lie in each other, and most elements and attributes in all.
    static constexpr std::size_t depthLimit = 250;
    static constexpr std::size_t nodeLimit = 5'000'000;

    /// @param name how errors call the document, for example its path
    /// @throws Error for anything that is not one well-formed document within these limits, and for one that uses
    ///         entities which it does not declare itself
    static Document parse(std::string_view bytes, const std::string& name);
    /// Reads and parses a file. @throws FileError, Error
    static Document read(const FileURL& url);
    /// A new document with an empty root element.
    static Document make(const std::string& rootName);

    Node root() const;
    /// The nodes that an XPath 1.0 expression selects, in document order. @throws Error
    std::vector<Node> query(const std::string& xpath) const;

    /// The document with an XML declaration (UTF-8) and a final line feed.
    /// @param pretty indent elements by two blanks where they hold no text
    std::string serialized(bool pretty) const;

  private:
    struct Owner;
    explicit Document(std::shared_ptr<Owner> owner) : owner_(std::move(owner)) {}
    std::shared_ptr<Owner> owner_;
};

} // namespace corvane::XML
