#pragma once

#include "Support/FileURL.hpp"

#include <functional>
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

/// Names and values of an element's attributes; no name stands there twice.
using Attributes = std::vector<std::pair<std::string, std::string>>;

/// A node of a document: an element, attribute, text, comment ... It is a handle: it stays usable while its document
/// lives, also when the node has been taken out of the tree, and copying it does not copy the node. Attributes go by
/// their names as they stand, with their prefixes.
class Node {
  public:
    bool isElement() const;
    /// True for character data, in a CDATA section or not.
    bool isText() const;
    /// Name of an element or attribute as it stands, with its prefix if it has one.
    std::string name() const;
    /// The text below an element, or an attribute's value.
    std::string text() const;
    /// Replaces everything inside an element by one text.
    void setText(std::string_view text) const;

    std::optional<std::string> attribute(const std::string& name) const;
    /// Names and values in document order.
    Attributes attributes() const;
    /// Changes the value in its place, or adds the attribute behind the others.
    void setAttribute(const std::string& name, const std::string& value) const;
    void removeAttribute(const std::string& name) const;
    /// Brings the attributes into the order of their names, code point by code point.
    void sortAttributes() const;

    std::optional<Node> parent() const;
    /// The child elements in document order.
    std::vector<Node> elements() const;
    /// The child elements of one name, in document order.
    std::vector<Node> elements(std::string_view name) const;
    std::optional<Node> firstElement(std::string_view name) const;
    /// All child nodes in document order, texts and comments too.
    std::vector<Node> children() const;

    Node appendElement(const std::string& name) const;
    Node appendElement(const std::string& name, std::string_view text) const;
    /// Adds a new element directly before, or directly behind, this one.
    Node insertElementBefore(const std::string& name) const;
    Node insertElementAfter(const std::string& name) const;
    /// Adds character data behind what is in the element, or directly before this node.
    void appendText(const std::string& text) const;
    void insertTextBefore(const std::string& text) const;
    /// Puts a copy of a node, of this or another document, and of all below it in front of the element's children.
    Node prependCopy(const Node& other) const;
    /// Puts such a copy in the place of this node, which is removed.
    Node replaceByCopy(const Node& other) const;
    /// Takes the node, with everything below it, out of the tree. It has no parent then; its memory goes with the
    /// document.
    void remove() const;

    /// The element alone as one text, without a declaration: nothing is indented, empty elements close themselves.
    std::string serialized() const;

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
    friend class Node;
    struct Owner;
    explicit Document(std::shared_ptr<Owner> owner) : owner_(std::move(owner)) {}
    std::shared_ptr<Owner> owner_;
};

/// Calls back for the start of every element, in document order and without building a tree, until the visitor returns
/// false. What is wrong with the text ends the calls as the end of the text does: nothing is said about it.
/// @param visit receives the element's name, with its prefix if it has one, and its attributes
void forEachElement(std::string_view bytes,
                    const std::function<bool(const std::string& name, const Attributes& attributes)>& visit);

} // namespace corvane::XML
