#pragma once

#include "PiGraph.h"
#include "VnExport.h"

#include <string>
#include <vector>

namespace Vn {

// The application's tool graph: nodes, sockets and stored values with their undo history.
class VN_EXPORT HoGraph {
public:
    // `controller`, when given, makes the root group's controller, which is the graph's; its
    // node is set before the graph is handed out.
    static RCShdPtr<PiGraph> create(std::string const& name, std::string const& role = {},
                                    PiGraphControllerFactory const& controller = {});
};

// Reading aids over a graph, for tests, logs and checks.
class VN_EXPORT HoGraphUtil {
public:
    // Every node under the group, its sockets, connections and stored values, one per line, in
    // order. Sources are named by node path relative to the group; ids only when asked.
    static std::string dump(PiGroupNode const& group, bool withIds);
    // What is wrong with the graph's structure: connections not the same seen from both ends,
    // boundary nodes not one per group socket, ids used twice. Empty when all holds.
    static std::vector<std::string> checkInvariants(PiGraph const& graph);
};

} // namespace Vn
