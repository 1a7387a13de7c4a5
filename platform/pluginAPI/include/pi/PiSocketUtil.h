#pragma once

#include "Iterator.h"
#include "PiSocketType.h"
#include "PrdPredicate.h"
#include "RCBase.h"
#include "VnExport.h"

#include <string>

namespace Vn {

class PiGroupNode;
class PiInput;
class PiInputList;
class PiNode;
class PiOutput;
class PiSocket;
class PiTimePath;

// Socket verbs for editors: dotted names, the rule for connecting, animation queries, the
// order of list elements and copying values from one input to another.
class VN_EXPORT PiSocketUtil {
public:
    // How getName treats an element of a multi-valued input.
    enum MultivaluedIndexMode : int { KEEP_ELEMENT = 0, SKIP_ELEMENT = 1 };
    using InputPredicate = PrdPredicate<RCShdPtr<PiInput const>>;

    static std::string const& getSocketSeparator();
    // The owners' names and the input's, outermost first; stops below the first owner `stop`
    // refuses.
    static std::string getName(PiInput const& input, MultivaluedIndexMode mode = KEEP_ELEMENT,
                               InputPredicate const& stop = InputPredicate());
    // Looked up from the input's owner, then each owner further out; null when none has it.
    static RCShdPtr<PiInput> findSiblingInput(PiInput const& input, std::string const& dottedName);
    static RCShdPtr<PiInput> getRootOwnerInput(RCShdPtr<PiInput> const& input);
    // Null for an empty name or a miss.
    static RCShdPtr<PiInput> getInput(PiNode const& node, std::string const& dottedName);
    static RCShdPtr<PiInput> getInput(PiInputList const& list, std::string const& dottedName);
    // The first top-level socket with the type code, or null.
    static RCShdPtr<PiInput> getFirstInput(PiNode const& node, PiSocketType const& type);
    static RCShdPtr<PiOutput> getFirstOutput(PiNode const& node, PiSocketType const& type);
    // The tool's primary sockets; null for a node without a tool or a tool without them.
    static RCShdPtr<PiInput> getPrimaryInput(PiNode const& node);
    static RCShdPtr<PiOutput> getPrimaryOutput(PiNode const& node);
    // The primary socket when it has the type code, else the first of that type.
    static RCShdPtr<PiInput> getPrimaryInput(PiNode const& node, PiSocketType const& type);
    static RCShdPtr<PiOutput> getPrimaryOutput(PiNode const& node, PiSocketType const& type);
    static RCShdPtr<PiInput> getPrimaryImageInput(PiNode const& node);
    static RCShdPtr<PiOutput> getPrimaryImageOutput(PiNode const& node);
    // Sub-inputs of a list or structure: its own, or every level, depth first. Empty for an
    // input that holds none.
    static Iterator<RCShdPtr<PiInput>> retrieveInputs(RCShdPtr<PiInput> const& input);
    static Iterator<RCShdPtr<PiInput>> retrieveAllInputs(RCShdPtr<PiInput> const& input);
    // A group's socket is dynamic when its boundary is.
    static bool isDynamic(PiSocket const& socket);
    // The group whose socket the input is; null for an input not of a boundary node.
    static RCShdPtr<PiGroupNode> getGroupNodeFromInput(PiInput const& input);

    // Null or unconnected inputs answer false.
    static bool hasAnimation(RCShdPtr<PiInput const> const& input);
    static bool hasExpression(RCShdPtr<PiInput const> const& input);
    static bool hasAnimationKey(RCShdPtr<PiInput const> const& input, PiTimePath const& timePath);
    static bool isAnimatable(RCShdPtr<PiInput const> const& input);
    // The text without its leading expression token; raises ExBase without expression services.
    static std::string removeExpressionToken(std::string const& text);

    // Back to the tool's default, or the tried-out change of its value dropped.
    static void resetInput(RCShdPtr<PiInput> const& input);
    // Whether the groups of both sockets let an edit join them; types are not looked at. The
    // input's group is asked first, and a group holding both is asked once.
    static bool canConnect(RCShdPtr<PiInput> const& input, RCShdPtr<PiOutput> const& output);
    // Reorder an element of a composite input; each is one undo step and gives whether it
    // moved. Raises ExBase for an input that is no element of a composite input.
    static bool moveNext(RCShdPtr<PiInput> const& input);
    static bool movePrevious(RCShdPtr<PiInput> const& input);
    static bool moveFirst(RCShdPtr<PiInput> const& input);
    static bool moveLast(RCShdPtr<PiInput> const& input);
    // Gives `to` a copy of what feeds `from`, element by element for lists and structures, as
    // one undo step; the value node that fed `to` goes when nothing else uses it. Nothing
    // happens for inputs of different types or shapes.
    static void copyInput(RCShdPtr<PiInput const> const& from, RCShdPtr<PiInput> const& to);
};

} // namespace Vn
