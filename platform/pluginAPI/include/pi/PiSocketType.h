#pragma once

#include "VnExport.h"

namespace Vn {

// The type of a socket: a type code, and whether the socket holds one connection or a list of
// sub-sockets of that type.
class VN_EXPORT PiSocketType {
public:
    enum Type : int {
        NONE = -1, // a structured input, which has no type of its own
        BOOL = 0,
        DOUBLE = 1,
        INT = 2,
        STRING = 3,
        TIME = 4,
        IMAGE = 5,
        OBJECT3D = 8,
        GEOMETRY = 9,
        MATERIAL = 10,
        SHAPE2D = 11,
        MATRIX = 12,
        GRAPH_OBJ_IDS = 13,
        CAMERA = 14,
    };
    // SINGLE connects once; COMPOSITE holds an ordered, editable list of inputs of the type;
    // MULTIVALUED holds values by index.
    enum Cardinality : int { SINGLE = 0, COMPOSITE = 1, MULTIVALUED = 2 };

    constexpr PiSocketType(int type = NONE, Cardinality cardinality = SINGLE) noexcept
        : _type(type), _cardinality(cardinality) {}

    constexpr int getType() const noexcept { return _type; }
    constexpr Cardinality getCardinality() const noexcept { return _cardinality; }
    // The types whose inputs are fed by value nodes.
    constexpr bool isValueType() const noexcept { return _type >= BOOL && _type <= TIME; }
    static constexpr bool isKnownType(int type) noexcept {
        return (type >= NONE && type <= IMAGE) || (type >= OBJECT3D && type <= CAMERA);
    }
    constexpr bool operator==(PiSocketType const&) const noexcept = default;

private:
    int _type;
    Cardinality _cardinality;
};

} // namespace Vn
