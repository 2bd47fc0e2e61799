#include "Support/XML.hpp"

#include "Support/FileManager.hpp"

#include <libxml/SAX2.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlerror.h>
#include <libxml/xpath.h>

#include <exception>
#include <map>
#include <mutex>

namespace corvane::XML {
namespace {

struct XmlFree {
    void operator()(xmlChar* text) const { xmlFree(text); }
    void operator()(xmlParserCtxt* context) const { xmlFreeParserCtxt(context); }
    void operator()(xmlXPathContext* context) const { xmlXPathFreeContext(context); }
    void operator()(xmlXPathObject* object) const { xmlXPathFreeObject(object); }
};
template <class T>
using XmlPointer = std::unique_ptr<T, XmlFree>;

const xmlChar* xml(const std::string& text) { return reinterpret_cast<const xmlChar*>(text.c_str()); }
std::string string(const xmlChar* text) { return text != nullptr ? reinterpret_cast<const char*>(text) : ""; }
xmlNode* raw(void* node) { return static_cast<xmlNode*>(node); }

/// What is noted of a document while it is parsed, beside the library's own errors.
struct Parsing {
    std::size_t nodeCount = 0;
    std::string problem;
};

Parsing* parsing(xmlParserCtxt* context) {
    return context != nullptr ? static_cast<Parsing*>(context->_private) : nullptr;
}

xmlParserInput* refuseExternalEntity(const char*, const char*, xmlParserCtxt* context) {
    if (Parsing* state = parsing(context)) state->problem = "an entity outside of the document is used";
    return nullptr;
}

/// Keeps the tree within its limits: a document of some kilobytes, compressed, may stand for gigabytes of nodes.
void startElement(void* parser, const xmlChar* name, const xmlChar* prefix, const xmlChar* uri, int namespaceCount,
                  const xmlChar** namespaces, int attributeCount, int defaultedCount, const xmlChar** attributes) {
    auto* context = static_cast<xmlParserCtxt*>(parser);
    if (Parsing* state = parsing(context)) {
        state->nodeCount += 1 + static_cast<std::size_t>(attributeCount);
        if (state->nodeCount > Document::nodeLimit) state->problem = "too many elements";
        if (static_cast<std::size_t>(context->nodeNr) >= Document::depthLimit) state->problem = "elements lie too deep";
        if (!state->problem.empty()) return xmlStopParser(context);
    }
    xmlSAX2StartElementNs(parser, name, prefix, uri, namespaceCount, namespaces, attributeCount, defaultedCount,
                          attributes);
}

/// Most attributes of an element, and most equal signs in a text without "<".
constexpr std::size_t attributeLimit = 5000;

/// The library compares every attribute of an element with all before it, and asks nobody until it has read them: some
/// hundred thousand in one element would take it hours. No "<" lies between attributes, and each needs an equal sign,
/// which only an entity may have as a reference.
bool hasTooManyAttributes(std::string_view bytes) {
    const bool declaresEntities = bytes.find("<!ENTITY") != std::string_view::npos;
    std::size_t count = 0;
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        if (bytes[at] == '<') count = 0;
        const bool isReference = declaresEntities && bytes[at] == '#' && at > 0 && bytes[at - 1] == '&';
        if ((bytes[at] == '=' || isReference) && ++count > attributeLimit) return true;
    }
    return false;
}

void prepareLibrary() {
    static std::once_flag once;
    std::call_once(once, [] {
        xmlInitParser();
        xmlSetExternalEntityLoader(&refuseExternalEntity);
    });
}

/// Keeps the first error of this thread's use of the library, which else would print it.
class ErrorCollector {
  public:
    ErrorCollector() { xmlSetStructuredErrorFunc(this, &ErrorCollector::collect); }
    ErrorCollector(const ErrorCollector&) = delete;
    ErrorCollector& operator=(const ErrorCollector&) = delete;
    ~ErrorCollector() { xmlSetStructuredErrorFunc(nullptr, nullptr); }

    /// The library went on without an entity that nobody declared.
    bool leavesOut() const { return leavesOut_; }
    std::string description() const { return first_.empty() ? "not well-formed" : first_; }

  private:
    static void collect(void* self, xmlError* error) {
        auto* collector = static_cast<ErrorCollector*>(self);
        const bool leavesOut = error->code == XML_WAR_UNDECLARED_ENTITY;
        collector->leavesOut_ = collector->leavesOut_ || leavesOut;
        std::string& first = collector->first_;
        if (!first.empty() || error->message == nullptr || (error->level < XML_ERR_ERROR && !leavesOut)) return;
        std::string message = error->message;
        while (!message.empty() && (message.back() == '\n' || message.back() == ' ')) message.pop_back();
        first = (error->line > 0 ? "line " + std::to_string(error->line) + ": " : "") + message;
    }

    std::string first_;
    bool leavesOut_ = false;
};

} // namespace

struct Document::Owner {
    explicit Owner(xmlDoc* owned) : document(owned) {
        if (document == nullptr) return;
        document->_private = this;
        // Without a name here, text beyond ASCII is written as references in attributes, and as itself elsewhere.
        xmlFree(const_cast<xmlChar*>(document->encoding));
        document->encoding = xmlStrdup(xml("UTF-8"));
    }
    Owner(const Owner&) = delete;
    Owner& operator=(const Owner&) = delete;
    ~Owner() {
        for (xmlNode* node : removed) xmlFreeNode(node);
        xmlFreeDoc(document);
    }

    static Owner& of(const xmlNode* node) { return *static_cast<Owner*>(node->doc->_private); }

    xmlDoc* document;
    std::vector<xmlNode*> removed;
};

namespace {

template <class NodeType>
std::string qualifiedName(const NodeType* node) {
    const bool hasPrefix = node->ns != nullptr && node->ns->prefix != nullptr;
    return (hasPrefix ? string(node->ns->prefix) + ":" : "") + string(node->name);
}

xmlAttr* findAttribute(xmlNode* element, const std::string& name) {
    xmlAttr* attribute = element->type == XML_ELEMENT_NODE ? element->properties : nullptr;
    while (attribute != nullptr && qualifiedName(attribute) != name) attribute = attribute->next;
    return attribute;
}

std::string valueOf(const xmlAttr* attribute) {
    const XmlPointer<xmlChar> value(xmlNodeListGetString(attribute->doc, attribute->children, 1));
    return string(value.get());
}

xmlNode* copyFor(const xmlNode* place, xmlNode* other) {
    xmlNode* copy = xmlDocCopyNode(other, place->doc, 1);
    if (copy == nullptr) throw std::bad_alloc();
    return copy;
}

} // namespace

bool Node::isElement() const { return raw(node_)->type == XML_ELEMENT_NODE; }

bool Node::isText() const { return raw(node_)->type == XML_TEXT_NODE || raw(node_)->type == XML_CDATA_SECTION_NODE; }

std::string Node::name() const {
    const xmlNode* node = raw(node_);
    const bool isQualified = node->type == XML_ELEMENT_NODE || node->type == XML_ATTRIBUTE_NODE;
    return isQualified ? qualifiedName(node) : string(node->name);
}

std::string Node::text() const {
    const XmlPointer<xmlChar> content(xmlNodeGetContent(raw(node_)));
    return string(content.get());
}

void Node::setText(std::string_view text) const {
    xmlNodeSetContent(raw(node_), nullptr);
    xmlNodeAddContentLen(raw(node_), reinterpret_cast<const xmlChar*>(text.data()), static_cast<int>(text.size()));
}

std::optional<std::string> Node::attribute(const std::string& name) const {
    const xmlAttr* attribute = findAttribute(raw(node_), name);
    if (attribute == nullptr) return std::nullopt;
    return valueOf(attribute);
}

Attributes Node::attributes() const {
    Attributes result;
    for (const xmlAttr* attribute = raw(node_)->properties; attribute != nullptr; attribute = attribute->next) {
        result.emplace_back(qualifiedName(attribute), valueOf(attribute));
    }
    return result;
}

void Node::setAttribute(const std::string& name, const std::string& value) const {
    xmlSetProp(raw(node_), xml(name), xml(value));
}

void Node::removeAttribute(const std::string& name) const {
    if (xmlAttr* attribute = findAttribute(raw(node_), name)) xmlRemoveProp(attribute);
}

void Node::sortAttributes() const {
    std::map<std::string, xmlAttr*> sorted;
    for (xmlAttr* attribute = raw(node_)->properties; attribute != nullptr; attribute = attribute->next) {
        sorted.emplace(qualifiedName(attribute), attribute);
    }
    xmlAttr* previous = nullptr;
    for (const auto& [name, attribute] : sorted) {
        attribute->prev = previous;
        attribute->next = nullptr;
        (previous != nullptr ? previous->next : raw(node_)->properties) = attribute;
        previous = attribute;
    }
}

std::optional<Node> Node::parent() const {
    xmlNode* parent = raw(node_)->parent;
    if (parent == nullptr || parent->type != XML_ELEMENT_NODE) return std::nullopt;
    return Node(parent);
}

std::vector<Node> Node::elements() const {
    std::vector<Node> result;
    for (xmlNode* child = xmlFirstElementChild(raw(node_)); child != nullptr; child = xmlNextElementSibling(child)) {
        result.push_back(Node(child));
    }
    return result;
}

std::vector<Node> Node::elements(std::string_view name) const {
    std::vector<Node> result = elements();
    std::erase_if(result, [&](const Node& element) { return element.name() != name; });
    return result;
}

std::optional<Node> Node::firstElement(std::string_view name) const {
    for (xmlNode* child = xmlFirstElementChild(raw(node_)); child != nullptr; child = xmlNextElementSibling(child)) {
        if (Node(child).name() == name) return Node(child);
    }
    return std::nullopt;
}

std::vector<Node> Node::children() const {
    std::vector<Node> result;
    for (xmlNode* child = raw(node_)->children; child != nullptr; child = child->next) result.push_back(Node(child));
    return result;
}

Node Node::appendElement(const std::string& name) const {
    return Node(xmlNewChild(raw(node_), nullptr, xml(name), nullptr));
}

Node Node::appendElement(const std::string& name, std::string_view text) const {
    const Node element = appendElement(name);
    element.setText(text);
    return element;
}

Node Node::insertElementBefore(const std::string& name) const {
    return Node(xmlAddPrevSibling(raw(node_), xmlNewNode(nullptr, xml(name))));
}

Node Node::insertElementAfter(const std::string& name) const {
    return Node(xmlAddNextSibling(raw(node_), xmlNewNode(nullptr, xml(name))));
}

void Node::appendText(const std::string& text) const { xmlAddChild(raw(node_), xmlNewText(xml(text))); }

void Node::insertTextBefore(const std::string& text) const { xmlAddPrevSibling(raw(node_), xmlNewText(xml(text))); }

Node Node::prependCopy(const Node& other) const {
    xmlNode* copy = copyFor(raw(node_), raw(other.node_));
    xmlNode* first = raw(node_)->children;
    return Node(first != nullptr ? xmlAddPrevSibling(first, copy) : xmlAddChild(raw(node_), copy));
}

Node Node::replaceByCopy(const Node& other) const {
    const Node copy(xmlAddPrevSibling(raw(node_), copyFor(raw(node_), raw(other.node_))));
    remove();
    return copy;
}

void Node::remove() const {
    if (raw(node_)->parent == nullptr) return;
    Document::Owner::of(raw(node_)).removed.push_back(raw(node_));
    xmlUnlinkNode(raw(node_));
}

std::string Node::serialized() const {
    const std::unique_ptr<xmlBuffer, void (*)(xmlBuffer*)> buffer(xmlBufferCreate(), &xmlBufferFree);
    if (!buffer || xmlNodeDump(buffer.get(), raw(node_)->doc, raw(node_), 0, 0) < 0) throw std::bad_alloc();
    return {reinterpret_cast<const char*>(xmlBufferContent(buffer.get())),
            static_cast<std::size_t>(xmlBufferLength(buffer.get()))};
}

Document Document::parse(std::string_view bytes, const std::string& name) {
    prepareLibrary();
    if (bytes.size() > sizeLimit) throw Error(name + ": larger than " + std::to_string(sizeLimit) + " bytes");
    const XmlPointer<xmlParserCtxt> context(xmlNewParserCtxt());
    if (!context) throw std::bad_alloc();
    // Entities are expanded here, where the library bounds their growth, and never later.
    if (hasTooManyAttributes(bytes)) throw Error(name + ": an element has too many attributes");
    constexpr int options = XML_PARSE_NONET | XML_PARSE_NOENT;
    const ErrorCollector errors;
    Parsing state;
    context->_private = &state;
    context->sax->startElementNs = &startElement;
    auto owner = std::make_shared<Owner>(
        xmlCtxtReadMemory(context.get(), bytes.data(), static_cast<int>(bytes.size()), nullptr, nullptr, options));
    if (!state.problem.empty()) throw Error(name + ": " + state.problem);
    if (owner->document == nullptr || errors.leavesOut()) throw Error(name + ": " + errors.description());
    return Document(std::move(owner));
}

Document Document::read(const FileURL& url) { return parse(FileManager::readFile(url, sizeLimit), url.string()); }

Document Document::make(const std::string& rootName) {
    prepareLibrary();
    xmlDoc* document = xmlNewDoc(xml("1.0"));
    xmlDocSetRootElement(document, xmlNewNode(nullptr, xml(rootName)));
    return Document(std::make_shared<Owner>(document));
}

Node Document::root() const { return Node(xmlDocGetRootElement(owner_->document)); }

std::vector<Node> Document::query(const std::string& xpath) const {
    prepareLibrary();
    const ErrorCollector errors;
    const XmlPointer<xmlXPathContext> context(xmlXPathNewContext(owner_->document));
    if (!context) throw std::bad_alloc();
    const XmlPointer<xmlXPathObject> object(xmlXPathEvalExpression(xml(xpath), context.get()));
    if (!object) throw Error("Cannot evaluate the XPath expression " + xpath + ": " + errors.description());
    std::vector<Node> result;
    const xmlNodeSet* nodes = object->nodesetval;
    for (int index = 0; nodes != nullptr && index < nodes->nodeNr; ++index)
        result.push_back(Node(nodes->nodeTab[index]));
    return result;
}

std::string Document::serialized(bool pretty) const {
    xmlChar* bytes = nullptr;
    int length = 0;
    xmlDocDumpFormatMemoryEnc(owner_->document, &bytes, &length, "UTF-8", pretty ? 1 : 0);
    const XmlPointer<xmlChar> owned(bytes);
    if (!owned) throw std::bad_alloc();
    return {reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length)};
}

namespace {

struct ElementVisit : Parsing {
    explicit ElementVisit(const std::function<bool(const std::string&, const Attributes&)>& visitor) : visit(visitor) {}

    const std::function<bool(const std::string&, const Attributes&)>& visit;
    std::exception_ptr failure;
    bool isOver = false;
};

void visitElement(void* parser, const xmlChar* name, const xmlChar** attributes) {
    auto* context = static_cast<xmlParserCtxt*>(parser);
    auto* state = static_cast<ElementVisit*>(parsing(context));
    if (state->isOver) return;
    try {
        Attributes values;
        for (; attributes != nullptr && attributes[0] != nullptr; attributes += 2) {
            values.emplace_back(string(attributes[0]), string(attributes[1]));
        }
        state->isOver = !state->visit(string(name), values);
    } catch (...) { // no exception may pass through the library
        state->failure = std::current_exception();
        state->isOver = true;
    }
    if (state->isOver) xmlStopParser(context);
}

} // namespace

void forEachElement(std::string_view bytes, const std::function<bool(const std::string&, const Attributes&)>& visit) {
    prepareLibrary();
    if (bytes.size() > Document::sizeLimit || hasTooManyAttributes(bytes)) return;
    const ErrorCollector errors;
    const XmlPointer<xmlParserCtxt> context(xmlNewParserCtxt());
    if (!context) throw std::bad_alloc();
    xmlSAXHandler& handler = *context->sax;
    xmlSAXVersion(&handler, 1);
    handler.startElement = &visitElement;
    handler.endElement = nullptr;
    handler.characters = handler.ignorableWhitespace = nullptr;
    handler.cdataBlock = nullptr;
    handler.comment = nullptr;
    handler.processingInstruction = nullptr;
    handler.reference = nullptr;
    ElementVisit state(visit);
    context->_private = static_cast<Parsing*>(&state);
    xmlDoc* document = xmlCtxtReadMemory(context.get(), bytes.data(), static_cast<int>(bytes.size()), nullptr, nullptr,
                                         XML_PARSE_NONET | XML_PARSE_NOENT);
    xmlFreeDoc(document);
    if (state.failure) std::rethrow_exception(state.failure);
}

} // namespace corvane::XML
