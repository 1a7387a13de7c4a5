#include "HoComposition.h"

#include "HoGraph.h"
#include "IxConvertUtil.h"
#include "OsFilePath.h"
#include "PiCommandStack.h"
#include "PiInputPolicy.h"
#include "PiNode.h"
#include "PiSocket.h"
#include "PiTool.h"
#include "PiToolInterface.h"
#include "PiToolRegistry.h"
#include "PiTopologyInterface.h"
#include "PiValue.h"
#include "PxRequestMgr.h"
#include "XmlDocument.h"

#include <algorithm>
#include <cmath>
#include <future>
#include <map>
#include <optional>
#include <sstream>

#include <sys/stat.h>

namespace Vn {

#define HO_FAIL(message) throw HoRenderError(__FILE__, __LINE__, message)

namespace {

std::map<std::string, IxPixelFormat::Depth> const& depthNames() {
    static std::map<std::string, IxPixelFormat::Depth> const names{
        {"uint8", IxPixelFormat::UINT8},
        {"half", IxPixelFormat::FLOAT16},
        {"float", IxPixelFormat::FLOAT32}};
    return names;
}

std::string depthName(IxPixelFormat::Depth depth) {
    for (auto const& [name, d] : depthNames())
        if (d == depth)
            return name;
    return std::to_string(int(depth));
}

// Line and column of a byte offset in the text, counted from 1.
std::string where(std::string_view text, std::size_t offset) {
    offset = std::min(offset, text.size());
    std::size_t const lineStart = text.rfind('\n', offset == 0 ? 0 : offset - 1);
    std::size_t const line =
        1 + static_cast<std::size_t>(std::count(text.begin(), text.begin() + offset, '\n'));
    std::size_t const column = offset - (lineStart == std::string_view::npos ? 0 : lineStart + 1);
    return "line " + std::to_string(line) + ", column " + std::to_string(column + 1);
}

int intAttribute(XmlElement const& e, char const* name, std::string const& origin) {
    std::string const text = e.getAttribute(name);
    std::size_t used = 0;
    try {
        int const v = std::stoi(text, &used);
        if (used == text.size())
            return v;
    } catch (std::logic_error const&) {
    }
    HO_FAIL(origin + ": the attribute \"" + name + "\" of \"" + e.getName() + "\" is \"" +
            text.substr(0, 64) + "\", not a whole number");
}

// The registered tools, for a message about one that is not.
std::string registeredTools() {
    if (!PiToolRegistry::isInitialized())
        return "none";
    std::string names;
    for (auto const& t : PiToolRegistry::getInstance().getTools(PiToolRegistry::PUBLIC_TOOLS,
                                                                PiToolRegistry::LATEST_VERSIONS))
        names += (names.empty() ? "" : ", ") + t->getName();
    return names.empty() ? "none" : names;
}

// Every value a tool reads lies in the range its input allows.
template <class T>
void checkRange(PiInput const& in, RCShdPtr<PiInputPolicy const> const& policy, PiNode& value,
                std::string const& origin) {
    auto range = rcDynamicCast<PiRangeInputPolicy<T> const>(policy);
    auto stored = rcDynamicCast<PiTypedValue<T>>(value.findValue(PiValueNode::VALUE_NAME));
    if (!range || !stored || range->isValid(stored->get()))
        return;
    std::ostringstream os;
    os << origin << ": the value " << stored->get() << " of \"" << in.retrieveNode()->getNodeName()
       << "." << in.getDottedName() << "\" is outside its range " << range->getMin() << " to "
       << range->getMax();
    HO_FAIL(os.str());
}

void checkValues(PiGroupNode const& group, std::string const& origin) {
    for (auto nodes = group.getNodes(); !nodes.atEnd(); nodes.next()) {
        RCShdPtr<PiNode> const node = nodes.item();
        if (auto inner = rcDynamicCast<PiGroupNode>(node))
            checkValues(*inner, origin);
        auto tool = rcDynamicCast<PiToolInterface>(node->getController().lock());
        if (!tool)
            continue;
        for (auto it = node->getInputs(PiNode::ALL, 1); !it.atEnd(); it.next()) {
            RCShdPtr<PiInput> const in = it.item();
            RCShdPtr<PiOutput> const source = in->getConnectedOutput();
            RCShdPtr<PiNode> const value = source ? source->retrieveNode() : RCShdPtr<PiNode>();
            if (!value || value->getNodeKind() != PiNode::VALUE)
                continue;
            RCShdPtr<PiInputPolicy const> const policy = tool->getInputPolicy(*in);
            checkRange<double>(*in, policy, *value, origin);
            checkRange<int>(*in, policy, *value, origin);
        }
    }
}

// The archive names nodes by their ids in the running process; a file numbers them from 1 in
// the order written, so that saving what was loaded gives the same text.
void renumberIds(XmlElement const& graph) {
    std::map<std::string, std::string> ids;
    std::vector<XmlElement> todo{graph};
    while (!todo.empty()) {
        XmlElement e = todo.back();
        todo.pop_back();
        if ((e.getName() == "Node" || e.getName() == "Boundary") && e.hasAttribute("id")) {
            std::string const fresh = std::to_string(ids.size() + 1);
            ids.emplace(e.getAttribute("id"), fresh);
            e.setAttribute("id", fresh);
        }
        std::vector<XmlElement> children = e.getChildren();
        todo.insert(todo.end(), children.rbegin(), children.rend());
    }
    for (XmlElement c : graph.getChildren("Connection"))
        for (char const* side : {"inputNode", "outputNode"}) {
            auto const it = ids.find(c.getAttribute(side));
            if (it != ids.end())
                c.setAttribute(side, it->second);
        }
}

} // namespace

HoComposition HoComposition::create(std::string const& name) {
    HoComposition c;
    c.graph = HoGraph::create(name, "Composition");
    return c;
}

HoComposition HoComposition::parse(std::string_view text, std::string const& origin) {
    XmlDocument doc;
    try {
        doc = XmlDocument::parse(text);
    } catch (ExBase const& e) {
        // The parser gives a byte offset: say where that is as an editor would.
        std::string reason = e.getReason();
        std::size_t const at = reason.find("at byte ");
        if (at != std::string::npos) {
            std::size_t const offset = std::stoul(reason.substr(at + 8));
            std::size_t const colon = reason.find("): ");
            reason = "malformed XML at " + where(text, offset) +
                     (colon == std::string::npos ? "" : ": " + reason.substr(colon + 3));
        }
        HO_FAIL(origin + ": " + reason);
    }
    XmlElement const root = doc.getRoot();
    if (root.getName() != "Composition")
        HO_FAIL(origin + ": the root element is \"" + root.getName() + "\", not \"Composition\"");
    int const version = intAttribute(root, "version", origin);
    if (version > kVersion)
        HO_FAIL(origin + ": the composition is of version " + std::to_string(version) +
                "; this program reads version " + std::to_string(kVersion) + " and older");
    if (version < 1)
        HO_FAIL(origin + ": unknown composition version " + std::to_string(version));

    HoComposition c = create(root.hasAttribute("name") ? root.getAttribute("name") : "composition");
    XmlElement const render =
        root.getChildren("Render").empty() ? XmlElement() : root.getChildren("Render")[0];
    if (render.isNull())
        HO_FAIL(origin + ": the composition has no \"Render\" element");
    c.first = intAttribute(render, "first", origin);
    c.last = intAttribute(render, "last", origin);
    try {
        c.rate = Rational::parsePositive(render.getAttribute("rate"));
    } catch (ExBase const& e) {
        HO_FAIL(origin + ": the rate " + e.getReason());
    }
    auto const depth = depthNames().find(render.getAttribute("depth"));
    if (depth == depthNames().end())
        HO_FAIL(origin + ": the depth \"" + render.getAttribute("depth").substr(0, 64) +
                "\" is not uint8, half or float");
    c.depth = depth->second;
    for (XmlElement const& o : render.getChildren("Output")) {
        HoCompositionOutput out{o.getAttribute("node"), o.getAttribute("socket"),
                                o.getAttribute("file"), o.getAttribute("compression")};
        if (out.socket.empty())
            out.socket = "Output";
        auto const& known = compressions();
        if (!out.compression.empty() &&
            std::find(known.begin(), known.end(), out.compression) == known.end()) {
            std::string names;
            for (std::string const& k : known)
                names += (names.empty() ? "" : ", ") + k;
            HO_FAIL(origin + ": the compression \"" + out.compression.substr(0, 64) +
                    "\" of the output \"" + out.file.substr(0, 256) + "\" is not one of " + names);
        }
        c.outputs.push_back(out);
    }

    std::vector<XmlElement> const graphs = root.getChildren("Graph");
    if (graphs.size() != 1)
        HO_FAIL(origin + ": a composition holds one \"Graph\", not " +
                std::to_string(graphs.size()));
    try {
        PiUndoGuard guard(*c.graph, "Load Composition");
        c.graph->unarchiveNodes(graphs[0], c.graph->getRootNode());
    } catch (ExBase const& e) {
        std::string reason = e.getReason();
        if (reason.find("unknown tool") != std::string::npos)
            reason += "; the tools are " + registeredTools();
        HO_FAIL(origin + ": " + reason);
    }
    checkValues(*c.graph->getRootNode(), origin);
    try {
        c.validate();
    } catch (HoRenderError const& e) {
        HO_FAIL(origin + ": " + e.getReason());
    }
    return c;
}

HoComposition HoComposition::load(std::string const& path) {
    std::string text;
    try {
        text = OsFsUtils::readFile(OsFilePath(path));
    } catch (ExBase const& e) {
        HO_FAIL("cannot read the composition \"" + path + "\": " + e.getReason());
    }
    return parse(text, path);
}

std::string HoComposition::toXml() const {
    XmlDocument doc;
    XmlElement root = doc.createRoot("Composition");
    root.setAttribute("version", std::to_string(kVersion));
    root.setAttribute("name", graph->getName());
    XmlElement render = root.appendChild("Render");
    render.setAttribute("first", std::to_string(first));
    render.setAttribute("last", std::to_string(last));
    render.setAttribute("rate", rate.toString());
    render.setAttribute("depth", depthName(depth));
    for (HoCompositionOutput const& o : outputs) {
        XmlElement e = render.appendChild("Output");
        e.setAttribute("node", o.node);
        e.setAttribute("socket", o.socket);
        e.setAttribute("file", o.file);
        if (!o.compression.empty())
            e.setAttribute("compression", o.compression);
    }
    std::vector<RCShdPtr<PiNode>> nodes;
    for (auto it = graph->getRootNode()->getNodes(); !it.atEnd(); it.next())
        nodes.push_back(it.item());
    {
        XmlWriter writer(root);
        graph->archiveNodes(nodes, writer);
    }
    renumberIds(root.getChildren("Graph").at(0));
    return doc.toString();
}

void HoComposition::save(std::string const& path) const {
    std::string const text = toXml();
    try {
        OsFsUtils::saveAtomically(OsFilePath(path), text);
    } catch (ExBase const& e) {
        HO_FAIL("cannot save the composition \"" + path + "\": " + e.getReason());
    }
}

void HoComposition::validate() const {
    if (first > last)
        HO_FAIL("the frame range " + std::to_string(first) + "-" + std::to_string(last) +
                " is empty");
    if (outputs.empty())
        HO_FAIL("the composition has no output");
    for (HoCompositionOutput const& o : outputs) {
        if (o.file.empty())
            HO_FAIL("the output of \"" + o.node + "\" has no file");
        if (first != last && !HoImageFile::hasFramePattern(o.file))
            HO_FAIL("the output file \"" + o.file +
                    "\" needs a frame pattern ('#' or '%04d') for several frames");
        // Only the names: the processing nodes are built when the frames render, so that a
        // composition can be read and described without its plates.
        RCShdPtr<PiNode> const node = graph->getRootNode()->findNode(o.node);
        if (!node)
            HO_FAIL("the output names the node \"" + o.node + "\", which the composition lacks");
        RCShdPtr<PiOutput> const socket = node->findOutput(o.socket);
        if (!socket || socket->getType().getType() != PiSocketType::IMAGE)
            HO_FAIL("the node \"" + o.node + "\" has no image output \"" + o.socket + "\"");
    }
}

std::string HoComposition::describe() const {
    std::ostringstream os;
    os << "composition \"" << graph->getName() << "\": frames " << first << "-" << last << " at "
       << rate.toString() << " frames a second, written as " << depthName(depth) << "\n";
    for (auto it = graph->getRootNode()->getNodes(); !it.atEnd(); it.next()) {
        RCShdPtr<PiNode> const n = it.item();
        if (n->getNodeKind() == PiNode::VALUE)
            continue;
        auto tool = rcDynamicCast<PiToolNode>(n);
        os << "tool \"" << n->getNodeName() << "\"";
        if (tool && tool->getTool())
            os << " (" << tool->getTool()->getName() << ")";
        os << "\n";
        for (auto v = n->getValues(); !v.atEnd(); v.next())
            os << "  [" << v.item()->getName() << "] " << v.item()->toString() << "\n";
        for (auto in = n->getInputs(PiNode::ALL, 1); !in.atEnd(); in.next()) {
            RCShdPtr<PiOutput> const src = in.item()->getConnectedOutput();
            if (!src)
                continue;
            RCShdPtr<PiNode> const from = src->retrieveNode();
            if (from->getNodeKind() == PiNode::VALUE) {
                if (auto d = rcDynamicCast<PiTypedValue<double>>(
                        from->findValue(PiValueNode::VALUE_NAME)))
                    os << "  " << in.item()->getDottedName() << " = " << d->get() << "\n";
                else if (auto i = rcDynamicCast<PiTypedValue<int>>(
                             from->findValue(PiValueNode::VALUE_NAME)))
                    os << "  " << in.item()->getDottedName() << " = " << i->get() << "\n";
                continue;
            }
            os << "  " << in.item()->getDottedName() << " <- " << from->getNodeName() << "."
               << src->getName() << "\n";
        }
    }
    for (HoCompositionOutput const& o : outputs)
        os << "output " << o.node << "." << o.socket << " -> " << o.file
           << (o.compression.empty() ? "" : " (compression " + o.compression + ")") << "\n";
    return os.str();
}

std::vector<std::string> const& HoComposition::compressions() {
    static std::vector<std::string> const names{"none", "rle",  "zip",  "zips", "piz", "pxr24",
                                                "b44",  "b44a", "dwaa", "dwab", "lzw", "packbits"};
    return names;
}

PxStrongHndl<PxImageProtocol const> HoComposition::imageOf(HoCompositionOutput const& o) const {
    RCShdPtr<PiNode> const node = graph->getRootNode()->findNode(o.node);
    RCShdPtr<PiOutput> const socket = node ? node->findOutput(o.socket) : RCShdPtr<PiOutput>();
    if (!socket || socket->getType().getType() != PiSocketType::IMAGE)
        HO_FAIL("the composition has no image output \"" + o.node + "." + o.socket + "\"");
    auto topo = rcDynamicCast<PiTopologyInterface>(node->getController().lock());
    if (!topo)
        HO_FAIL("the node \"" + o.node + "\" has no processing side");
    PxStrongHndl<PxNode const> const out = topo->getOutputProcNode(socket).lock();
    auto const* image = dynamic_cast<PxImageProtocol const*>(out.get());
    if (!image)
        HO_FAIL("the node \"" + o.node + "\" makes no image");
    return PxStrongHndl<PxImageProtocol const>(image);
}

double HoCompositionRender::modificationTime(std::string const& path) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0)
        return -1.0;
    return static_cast<double>(st.st_mtim.tv_sec) + 1e-9 * static_cast<double>(st.st_mtim.tv_nsec);
}

HoCompositionRender::Result
HoCompositionRender::run(HoComposition const& composition,
                         std::function<void(Progress const&)> const& progress) const {
    HoComposition c;
    c.graph = composition.graph;
    c.first = frames ? frames->first : composition.first;
    c.last = frames ? frames->second : composition.last;
    c.rate = composition.rate;
    c.depth = composition.depth;
    c.outputs = composition.outputs;
    if (!files.empty()) {
        if (c.outputs.empty())
            HO_FAIL("the composition has no output to write to " + files.front());
        HoCompositionOutput const what = c.outputs.front();
        c.outputs.clear();
        for (std::string const& f : files)
            c.outputs.push_back({what.node, what.socket, f, what.compression});
    }
    c.validate();
    if (threads > 0)
        PxRequestMgr::getInstance().setMaxRunningWorkers(threads);

    // One image node per distinct socket: files of the same socket share a render.
    std::vector<std::pair<HoCompositionOutput, std::vector<HoCompositionOutput>>> renders;
    for (HoCompositionOutput const& o : c.outputs) {
        auto it = std::find_if(renders.begin(), renders.end(), [&](auto const& r) {
            return r.first.node == o.node && r.first.socket == o.socket;
        });
        if (it == renders.end())
            renders.push_back({o, {o}});
        else
            it->second.push_back(o);
    }
    auto const fileOf = [&](std::string const& pattern, int f) {
        return c.first == c.last && !HoImageFile::hasFramePattern(pattern)
                   ? pattern
                   : HoImageFile::expandFramePattern(pattern, f);
    };
    Result result;
    int const total = c.last - c.first + 1;
    // With more than one worker, a frame's files are written while the next frame renders; one
    // worker means one thread at a time. Two sets of frame buffers, kept from frame to frame:
    // their pages are faulted in once.
    bool const overlap = threads != 1 && PxRequestMgr::getInstance().getMaxRunningWorkers() != 1;
    std::vector<HoImage> buffers[2] = {std::vector<HoImage>(renders.size()),
                                       std::vector<HoImage>(renders.size())};
    int slot = 0; // the set the next frame renders into
    auto writeFrame = [&](int f, int from) {
        for (std::size_t k = 0; k < renders.size(); ++k)
            for (HoCompositionOutput const& file : renders[k].second)
                HoImageFile::write(buffers[from][k], fileOf(file.file, f), file.compression);
    };
    auto finished = [&](int f, std::string const* failure) {
        if (failure)
            result.failed.push_back({f, *failure});
        else
            result.rendered.push_back(f);
        if (progress)
            progress({f, 1, 1, f - c.first + 1, total});
    };
    std::future<void> writing;
    int writingFrame = 0;
    auto awaitWrite = [&] {
        if (!writing.valid())
            return;
        try {
            writing.get();
            finished(writingFrame, nullptr);
        } catch (ExBase const& e) {
            std::string const reason = e.getReason();
            finished(writingFrame, &reason);
        }
    };
    try {
        for (int f = c.first; f <= c.last; ++f) {
            if (skipExisting) {
                bool complete = true;
                for (HoCompositionOutput const& o : c.outputs)
                    complete = complete && modificationTime(fileOf(o.file, f)) > since;
                if (complete) {
                    result.skipped.push_back(f);
                    continue;
                }
            }
            std::optional<std::string> failure;
            try {
                double const time = static_cast<double>(f) / c.rate.toDouble();
                for (std::size_t k = 0; k < renders.size(); ++k)
                    HoRenderer::renderFrame(c.imageOf(renders[k].first), time, c.depth,
                                            buffers[slot][k], [&](int done, int tiles) {
                                                if (progress)
                                                    progress({f, done, tiles, f - c.first, total});
                                            });
            } catch (ExBase const& e) {
                failure = e.getReason();
            }
            awaitWrite();
            if (failure) {
                finished(f, &*failure);
                continue;
            }
            if (overlap) {
                writingFrame = f;
                writing = std::async(std::launch::async, writeFrame, f, slot);
                slot ^= 1;
                continue;
            }
            try {
                writeFrame(f, slot);
                finished(f, nullptr);
            } catch (ExBase const& e) {
                std::string const reason = e.getReason();
                finished(f, &reason);
            }
        }
        awaitWrite();
    } catch (...) {
        // Nothing may be left writing from buffers about to go.
        if (writing.valid())
            writing.wait();
        throw;
    }
    return result;
}

} // namespace Vn
