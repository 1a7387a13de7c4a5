#pragma once

#include "OPtr.h"
#include "VnExport.h"

#include <iosfwd>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Vn {

class XmlDocument;
class XmlElement;

// A handle on an attribute of an element; a default one is null.
class VN_EXPORT XmlAttribute {
public:
    XmlAttribute() noexcept = default;

    bool isNull() const noexcept { return _attribute == nullptr; }
    std::string_view getName() const;
    std::string_view getValue() const;
    XmlAttribute getNext() const;

private:
    friend class XmlElement;
    explicit XmlAttribute(void* attribute) noexcept : _attribute(attribute) {}
    void* _attribute = nullptr;
};

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
    // The attributes in order, and one attribute's value or null when absent, without copies:
    // valid while the document lives and the element is not changed.
    XmlAttribute getFirstAttribute() const;
    char const* findAttribute(char const* name) const;
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

// Writes elements one after the other: open, attributes, then text or elements, close. A writer
// of its own makes the text as it goes, each element on its line, indented by `indent` spaces
// per level as XmlDocument::toString does with two; there an element holds either text or
// elements, and its attributes come first. A writer on a stream gives it the text when the root
// element closes. A writer into an element of another document adds to that document instead.
// Texts end at a NUL, as in a document.
class VN_EXPORT XmlWriter {
public:
    explicit XmlWriter(int indent = 2);
    XmlWriter(std::ostream& stream, int indent);
    explicit XmlWriter(XmlElement parent);
    ~XmlWriter();

    void openTag(std::string_view name);
    // A second value for the same name replaces the first.
    void writeAttrib(std::string_view name, std::string_view value);
    // Replaces the element's text.
    void writeText(std::string_view text);
    void closeTag();
    // The text written so far, empty when nothing was, and for a writer into an element; all
    // elements must be closed.
    std::string toString() const;

private:
    enum class Part : unsigned char { ATTRIBUTES, TEXT, ELEMENTS };
    struct Open {
        XmlElement element;
        // Where the name stands in the text, for the end tag.
        std::size_t nameAt = 0;
        std::size_t nameSize = 0;
        // Where the text begins once the start tag is closed.
        std::size_t textAt = 0;
        Part part = Part::ATTRIBUTES;
    };
    void closeStartTag(Open& o);

    XmlElement _parent;
    std::vector<Open> _open;
    // Where the names of the open start tag's attributes stand in the text, and their sizes.
    std::vector<std::pair<std::size_t, std::size_t>> _attributes;
    std::string _text;
    std::ostream* _stream = nullptr;
    int _indent = 2;
};

} // namespace Vn
