#pragma once

#include "PiNodeController.h"
#include "VnExport.h"

namespace Vn {

// The mix-in of an expression node's controller. An expression names other nodes of its
// graph; after it lands in another graph (a preset, a paste) it binds those names anew.
class VN_EXPORT PiExpressionInterface : public virtual PiNodeController {
public:
    ~PiExpressionInterface() override;

    // Whether the names the expression reads are bound to nodes of its present graph.
    virtual bool isResolved() const = 0;
    // Whether its present graph holds what it names.
    virtual bool canResolve() const = 0;
    // Whether an input it drives keeps that connection when the group around the expression
    // is taken apart; an input not kept is reset. Not kept unless the expression says so.
    virtual bool keepsConsumer(RCShdPtr<PiInput> const& consumer) const;
    // Binds its names to the nodes of its present graph.
    virtual void resolve() = 0;
};

} // namespace Vn
