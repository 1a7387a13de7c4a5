#pragma once

namespace Vn {

class TmTypes {
public:
    // How a clip's frame range repeats outside itself.
    enum RepeatMode : int { HOLD = 0, LOOP = 1, PING_PONG = 2, NO_REPEAT = 3 };
};

} // namespace Vn
