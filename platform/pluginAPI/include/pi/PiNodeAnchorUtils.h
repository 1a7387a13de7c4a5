#pragma once

#include "Iterator.h"
#include "RCBase.h"
#include "VnExport.h"

#include <string>
#include <vector>

namespace Vn {

class PiNode;

// A named mark on a node, of a type that other parts of the application register.
struct VN_EXPORT PiNodeAnchor {
    std::string type;
    std::string name;
    bool operator==(PiNodeAnchor const&) const = default;
};

// The anchors of a node, kept in its stored text value "Anchors" so that they travel with it
// through archives, clones and undo. Each change is one undo step.
class VN_EXPORT PiNodeAnchorUtils {
public:
    static constexpr char const* ANCHORS_VALUE = "Anchors";

    static void addAnchor(PiNode& node, PiNodeAnchor const& anchor);
    // Drops every anchor equal to this one.
    static void removeAnchor(PiNode& node, PiNodeAnchor const& anchor);
    static bool hasAnchor(PiNode const& node, PiNodeAnchor const& anchor);
    // Whether the node holds the anchors' value, even an empty one.
    static bool hasAnchors(PiNode const& node);
    // In the order they were added; all of them for an empty type. Raises ExBase when the
    // stored value is not a list of anchors.
    static std::vector<PiNodeAnchor> getAnchors(PiNode const& node, std::string const& type = {});
    static void setAnchors(PiNode& node, std::vector<PiNodeAnchor> const& anchors);
    static void removeAnchors(PiNode& node);
};

// The anchor types known to the application, in order of registration.
class VN_EXPORT PiNodeAnchorRegistry {
public:
    // Duplicates are kept.
    virtual void registerAnchorType(std::string const& name) = 0;
    virtual ConstIterator<std::string> getAnchorTypes() const = 0;
    virtual ~PiNodeAnchorRegistry();

    static PiNodeAnchorRegistry& getInstance();
};

// The registry over a list of names.
class VN_EXPORT PiNodeAnchorRegistryImp final : public PiNodeAnchorRegistry {
public:
    void registerAnchorType(std::string const& name) override;
    ConstIterator<std::string> getAnchorTypes() const override;

private:
    std::vector<std::string> _types;
};

} // namespace Vn
