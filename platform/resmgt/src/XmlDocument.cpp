#include "XmlDocument.h"

#include "Assertions.h"
#include "ExBase.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <ostream>
#include <pugixml.hpp>
#include <sstream>

namespace Vn {

namespace {
pugi::xml_node node(void* p) {
    return pugi::xml_node(static_cast<pugi::xml_node_struct*>(p));
}
void* handle(pugi::xml_node n) {
    return n.internal_object();
}
// Appends the saved text to a string: a string stream would grow its own buffer and then be
// copied out whole.
class StringSink final : public pugi::xml_writer {
public:
    explicit StringSink(std::string& out) : _out(out) {}
    void write(void const* data, std::size_t size) override {
        _out.append(static_cast<char const*>(data), size);
    }

private:
    std::string& _out;
};
pugi::xml_node nextElement(pugi::xml_node n) {
    while (n && n.type() != pugi::node_element)
        n = n.next_sibling();
    return n;
}
} // namespace

std::string XmlElement::getName() const {
    return node(_node).name();
}

bool XmlElement::hasAttribute(std::string const& name) const {
    return findAttribute(name.c_str()) != nullptr;
}

std::string XmlElement::getAttribute(std::string const& name) const {
    char const* value = findAttribute(name.c_str());
    return value ? value : "";
}

std::vector<std::pair<std::string, std::string>> XmlElement::getAttributes() const {
    std::vector<std::pair<std::string, std::string>> result;
    for (pugi::xml_attribute a : node(_node).attributes())
        result.emplace_back(a.name(), a.value());
    return result;
}

namespace {
pugi::xml_attribute attribute(void* p) {
    return pugi::xml_attribute(static_cast<pugi::xml_attribute_struct*>(p));
}
} // namespace

std::string_view XmlAttribute::getName() const {
    return attribute(_attribute).name();
}

std::string_view XmlAttribute::getValue() const {
    return attribute(_attribute).value();
}

XmlAttribute XmlAttribute::getNext() const {
    return XmlAttribute(attribute(_attribute).next_attribute().internal_object());
}

XmlAttribute XmlElement::getFirstAttribute() const {
    return XmlAttribute(node(_node).first_attribute().internal_object());
}

char const* XmlElement::findAttribute(char const* name) const {
    pugi::xml_attribute a = node(_node).attribute(name);
    return a ? a.value() : nullptr;
}

void XmlElement::setAttribute(std::string const& name, std::string const& value) {
    VN_ASSERT(!isNull());
    pugi::xml_node n = node(_node);
    pugi::xml_attribute a = n.attribute(name.c_str());
    if (!a)
        a = n.append_attribute(name.c_str());
    a.set_value(value.c_str());
}

std::string XmlElement::getText() const {
    return node(_node).text().get();
}

void XmlElement::setText(std::string const& text) {
    VN_ASSERT(!isNull());
    node(_node).text().set(text.c_str());
}

XmlElement XmlElement::appendChild(std::string const& name) {
    VN_ASSERT(!isNull());
    return XmlElement(handle(node(_node).append_child(name.c_str())));
}

XmlElement XmlElement::getFirstChild() const {
    return XmlElement(handle(nextElement(node(_node).first_child())));
}

XmlElement XmlElement::getNextSibling() const {
    return XmlElement(handle(nextElement(node(_node).next_sibling())));
}

std::vector<XmlElement> XmlElement::getChildren() const {
    std::vector<XmlElement> result;
    for (XmlElement c = getFirstChild(); !c.isNull(); c = c.getNextSibling())
        result.push_back(c);
    return result;
}

std::vector<XmlElement> XmlElement::getChildren(std::string const& name) const {
    std::vector<XmlElement> result;
    for (XmlElement c = getFirstChild(); !c.isNull(); c = c.getNextSibling())
        if (c.getName() == name)
            result.push_back(c);
    return result;
}

struct XmlDocument::Imp {
    pugi::xml_document doc;
    // Offsets at which the lines of the parsed text begin, for telling where an element stood.
    std::vector<std::size_t> lineStarts;
};

namespace {
std::vector<std::size_t> lineStartsOf(std::string_view text) {
    std::vector<std::size_t> starts{0};
    for (std::size_t i = 0; i < text.size(); ++i)
        if (text[i] == '\n')
            starts.push_back(i + 1);
    return starts;
}
int lineAt(std::vector<std::size_t> const& starts, std::size_t offset) {
    return static_cast<int>(std::upper_bound(starts.begin(), starts.end(), offset) -
                            starts.begin());
}
} // namespace

XmlDocument::XmlDocument() : _imp(new Imp) {}
XmlDocument::XmlDocument(XmlDocument&&) noexcept = default;
XmlDocument& XmlDocument::operator=(XmlDocument&&) noexcept = default;
XmlDocument::~XmlDocument() = default;

XmlDocument XmlDocument::parse(std::string_view text) {
    XmlDocument d;
    pugi::xml_parse_result r = d._imp->doc.load_buffer(
        text.data(), text.size(), pugi::parse_default | pugi::parse_ws_pcdata_single,
        pugi::encoding_utf8);
    d._imp->lineStarts = lineStartsOf(text);
    if (!r) {
        std::size_t const at = static_cast<std::size_t>(std::max<std::ptrdiff_t>(r.offset, 0));
        VN_THROW_MSG(ExBase, std::string("malformed XML at byte ") + std::to_string(at) +
                                 " (line " + std::to_string(lineAt(d._imp->lineStarts, at)) +
                                 "): " + r.description());
    }
    if (d.getRoot().isNull())
        VN_THROW_MSG(ExBase, "malformed XML: no root element");
    return d;
}

XmlDocument XmlDocument::load(std::string const& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in.is_open())
        VN_THROW_MSG(ExBase, "cannot open the XML file \"" + path + "\"");
    std::ostringstream text;
    text << in.rdbuf();
    if (in.bad())
        VN_THROW_MSG(ExBase, "cannot read the XML file \"" + path + "\"");
    try {
        return parse(text.str());
    } catch (ExBase const& e) {
        VN_THROW_MSG(ExBase, "\"" + path + "\": " + e.getReason());
    }
}

XmlElement XmlDocument::createRoot(std::string const& name) {
    _imp->doc.reset();
    _imp->lineStarts.clear();
    return XmlElement(handle(_imp->doc.append_child(name.c_str())));
}

int XmlDocument::getLineOf(XmlElement const& element) const {
    if (element.isNull() || _imp->lineStarts.empty())
        return 0;
    std::ptrdiff_t const at = node(element._node).offset_debug();
    return at < 0 ? 0 : lineAt(_imp->lineStarts, static_cast<std::size_t>(at));
}

XmlElement XmlDocument::getRoot() const {
    return XmlElement(handle(_imp->doc.document_element()));
}

std::string XmlDocument::toString() const {
    std::string text;
    StringSink sink(text);
    _imp->doc.save(sink, "  ", pugi::format_default | pugi::format_no_declaration);
    return text;
}

namespace {
// What a character becomes in an attribute value and in text: itself (0), an entity, or a
// character reference; the same escapes as the document's own saving, so that both give the
// same bytes.
enum Escape : unsigned char { KEEP, AMP, LT, GT, QUOT, NUMERIC, END };
struct EscapeTables {
    Escape attribute[256];
    Escape text[256];
    EscapeTables() {
        for (int c = 0; c < 256; ++c)
            attribute[c] = text[c] = KEEP;
        attribute[0] = text[0] = END;
        for (int c = 1; c < 32; ++c)
            attribute[c] = text[c] = NUMERIC;
        text['\t'] = text['\n'] = text['\r'] = KEEP;
        attribute['&'] = text['&'] = AMP;
        attribute['<'] = text['<'] = LT;
        text['>'] = GT;
        attribute['"'] = QUOT;
    }
};
EscapeTables const kEscapes;

std::string_view untilNul(std::string_view s) {
    return s.substr(0, std::min(s.size(), s.find('\0')));
}

void appendEscaped(std::string& out, std::string_view s, Escape const (&table)[256]) {
    std::size_t run = 0;
    for (std::size_t i = 0; i < s.size(); ++i) {
        Escape const e = table[static_cast<unsigned char>(s[i])];
        if (e == KEEP) [[likely]]
            continue;
        out.append(s.data() + run, i - run);
        run = i + 1;
        switch (e) {
        case END:
            return;
        case AMP:
            out.append("&amp;");
            break;
        case LT:
            out.append("&lt;");
            break;
        case GT:
            out.append("&gt;");
            break;
        case QUOT:
            out.append("&quot;");
            break;
        default: {
            unsigned const c = static_cast<unsigned char>(s[i]);
            char const ref[] = {'&', '#', static_cast<char>('0' + c / 10),
                                static_cast<char>('0' + c % 10), ';'};
            out.append(ref, sizeof ref);
        }
        }
    }
    out.append(s.data() + run, s.size() - run);
}

void appendIndent(std::string& out, int indent, std::size_t depth) {
    out.push_back('\n');
    out.append(static_cast<std::size_t>(indent) * depth, ' ');
}
} // namespace

XmlWriter::XmlWriter(int indent) : _indent(indent) {
    VN_ASSERT(indent >= 0);
}
XmlWriter::XmlWriter(std::ostream& stream, int indent) : XmlWriter(indent) {
    _stream = &stream;
}
XmlWriter::XmlWriter(XmlElement parent) : _parent(parent) {
    VN_ASSERT(!parent.isNull());
}
XmlWriter::~XmlWriter() = default;

void XmlWriter::closeStartTag(Open& o) {
    if (o.part == Part::ATTRIBUTES) {
        _text.push_back('>');
        o.textAt = _text.size();
    }
}

void XmlWriter::openTag(std::string_view name) {
    name = untilNul(name);
    Open e;
    if (!_parent.isNull()) {
        std::string const n(name);
        e.element = _open.empty() ? _parent.appendChild(n) : _open.back().element.appendChild(n);
    } else {
        if (_open.empty()) {
            // clang-format off
            VN_ASSERT(_text.empty() && "one root element");
            // clang-format on
        } else {
            Open& parent = _open.back();
            // clang-format off
            VN_ASSERT(parent.part != Part::TEXT && "an element holds text or elements");
            // clang-format on
            closeStartTag(parent);
            parent.part = Part::ELEMENTS;
            appendIndent(_text, _indent, _open.size());
        }
        _text.push_back('<');
        _attributes.clear();
        e.nameAt = _text.size();
        e.nameSize = name.size();
        _text.append(name);
    }
    _open.push_back(e);
}

void XmlWriter::writeAttrib(std::string_view name, std::string_view value) {
    VN_ASSERT(!_open.empty());
    Open& o = _open.back();
    if (!o.element.isNull()) {
        o.element.setAttribute(std::string(untilNul(name)), std::string(untilNul(value)));
        return;
    }
    // clang-format off
    VN_ASSERT(o.part == Part::ATTRIBUTES && "attributes come before text and elements");
    // clang-format on
    name = untilNul(name);
    for (std::size_t k = 0; k < _attributes.size(); ++k) {
        auto const [at, size] = _attributes[k];
        if (std::string_view(_text).substr(at, size) != name)
            continue;
        std::size_t const valueAt = at + size + 2;
        std::size_t const valueSize = _text.find('"', valueAt) - valueAt;
        std::string escaped;
        appendEscaped(escaped, value, kEscapes.attribute);
        _text.replace(valueAt, valueSize, escaped);
        for (std::size_t later = k + 1; later < _attributes.size(); ++later)
            _attributes[later].first = _attributes[later].first + escaped.size() - valueSize;
        return;
    }
    _text.push_back(' ');
    _attributes.emplace_back(_text.size(), name.size());
    _text.append(name);
    _text.append("=\"");
    appendEscaped(_text, value, kEscapes.attribute);
    _text.push_back('"');
}

void XmlWriter::writeText(std::string_view text) {
    VN_ASSERT(!_open.empty());
    Open& o = _open.back();
    if (!o.element.isNull()) {
        o.element.setText(std::string(untilNul(text)));
        return;
    }
    // clang-format off
    VN_ASSERT(o.part != Part::ELEMENTS && "an element holds text or elements");
    // clang-format on
    closeStartTag(o);
    o.part = Part::TEXT;
    _text.resize(o.textAt);
    appendEscaped(_text, text, kEscapes.text);
}

void XmlWriter::closeTag() {
    VN_ASSERT(!_open.empty());
    Open const o = _open.back();
    _open.pop_back();
    if (!o.element.isNull())
        return;
    if (o.part == Part::ATTRIBUTES) {
        _text.append(" />");
    } else {
        if (o.part == Part::ELEMENTS)
            appendIndent(_text, _indent, _open.size());
        std::size_t const at = _text.size();
        _text.resize(at + o.nameSize + 3);
        char* p = _text.data() + at;
        p[0] = '<';
        p[1] = '/';
        std::memcpy(p + 2, _text.data() + o.nameAt, o.nameSize);
        p[o.nameSize + 2] = '>';
    }
    if (_open.empty()) {
        _text.push_back('\n');
        if (_stream)
            _stream->write(_text.data(), static_cast<std::streamsize>(_text.size()));
    }
}

std::string XmlWriter::toString() const {
    VN_ASSERT(_open.empty());
    return _text;
}

} // namespace Vn
