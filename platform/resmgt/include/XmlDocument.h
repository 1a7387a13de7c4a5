#pragma once

#include "OPtr.h"
#include "VnExport.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Vn {

class XmlDocument;

// A handle on an element of an XmlDocument; valid while the document lives. A default one is
// null, and reads on a null element give empty results.
class VN_EXPORT XmlElement {
public:
    XmlElement() noexcept = default;

    bool isNull() const noexcept { return _node == nullptr; }
    std::string getName() const;
    bool hasAttribute(std::string const& name) const;
    // Empty when absent.
    std::string getAttribute(std::string const& name) const;
    std::vector<std::pair<std::string, std::string>> getAttributes() const;
    void setAttribute(std::string const& name, std::string const& value);
    // The text directly inside the element.
    std::string getText() const;
    void setText(std::string const& text);

    XmlElement appendChild(std::string const& name);
    // Child elements only: text and comments are skipped.
    XmlElement getFirstChild() const;
    XmlElement getNextSibling() const;
    std::vector<XmlElement> getChildren() const;
    std::vector<XmlElement> getChildren(std::string const& name) const;

    bool operator==(XmlElement const& o) const noexcept { return _node == o._node; }

private:
    friend class XmlDocument;
    explicit XmlElement(void* node) noexcept : _node(node) {}
    void* _node = nullptr;
};

// An XML document in memory.
class VN_EXPORT XmlDocument {
public:
    XmlDocument();
    XmlDocument(XmlDocument&&) noexcept;
    XmlDocument& operator=(XmlDocument&&) noexcept;
    ~XmlDocument();

    // Raises ExBase with the parser's reason, the byte offset and the line for text that is not
    // well-formed XML with one root element.
    static XmlDocument parse(std::string_view text);
    // The same for the text of a file; the reason names the file. A file that cannot be read
    // raises ExBase too.
    static XmlDocument load(std::string const& path);
    // Replaces the content by a new root element.
    XmlElement createRoot(std::string const& name);
    // Null for an empty document.
    XmlElement getRoot() const;
    // The line (from 1) where an element of a parsed document begins; 0 when unknown, as for
    // a document built in memory.
    int getLineOf(XmlElement const& element) const;
    std::string toString() const;

private:
    struct Imp;
    OPtr<Imp> _imp;
};

// Writes elements one after the other into a document: start, attributes and text, end.
class VN_EXPORT XmlWriter {
public:
    XmlWriter();
    // Writes inside an element of another document.
    explicit XmlWriter(XmlElement parent);
    ~XmlWriter();

    void startElement(std::string const& name);
    void addAttribute(std::string const& name, std::string const& value);
    void addText(std::string const& text);
    void endElement();
    // The element being written; null before the first start.
    XmlElement getCurrentElement() const;
    // The document written so far; all elements must be ended.
    std::string toString() const;
    XmlDocument const& getDocument() const noexcept { return _doc; }

private:
    XmlDocument _doc;
    XmlElement _parent;
    std::vector<XmlElement> _open;
};

} // namespace Vn
