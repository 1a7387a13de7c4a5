#pragma once

#include "LkCounter.h"
#include "RCBase.h"
#include "VnExport.h"

#include <string>

namespace Vn {

class OsFilePath;
class PiGroupNode;
class PiNode;
class PiTool;

// A file that holds one configured node, ready to be dropped into a graph: a header that names
// the node's tool, then the node as the graph archives it. The path is the preset's identity.
// The tool and the display-modifier flag are read from the file on first use and then kept,
// even when the file is later saved over.
class VN_EXPORT PiToolPreset : public RCBase<LkCounter<int>> {
public:
    // Remembers the path; the file is not touched.
    static RCShdPtr<PiToolPreset> create(std::string const& path);
    // Writes the node to the path, making the folders it needs; an existing file is replaced.
    // Null, and nothing written, for a node without a tool. A file that cannot be opened is
    // the assertion "streamer.is_open()".
    static RCShdPtr<PiToolPreset> save(RCShdPtr<PiNode const> const& node, OsFilePath const& path,
                                       std::string const& creator);
    // By path; two nulls are equal, a null and a preset are not.
    static bool areEqual(RCShdPtr<PiToolPreset const> const& a,
                         RCShdPtr<PiToolPreset const> const& b);
    // "qnpreset", without a point.
    static std::string getQnPresetExtension();
    static std::wstring getQnPresetExtensionW();

    ~PiToolPreset() override;

    // The file's name without its extension.
    std::string getName() const;
    std::string const& getPresetPath() const noexcept { return _presetPath; }
    // Null when the file has no header or no tool name, or the tool is not registered. A file
    // that cannot be read or parsed raises ExBase.
    RCShdPtr<PiTool const> const& getTool() const;
    bool isADisplayModifierTool() const;
    // Loads the node into the group under the given name, unchanged even when the group has
    // it already, as one undo step. The node's controller must be a PiToolInterface; it
    // remembers this preset as its current one.
    RCShdPtr<PiNode> addNode(RCShdPtr<PiGroupNode> const& group, std::string const& name) const;

protected:
    explicit PiToolPreset(std::string path);

private:
    void readHeader() const;

    std::string _presetPath;
    mutable RCShdPtr<PiTool const> _tool;
    mutable bool _displayGraphModifier = false;
};

} // namespace Vn
