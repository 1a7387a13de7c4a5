#pragma once

#include <functional>

namespace Vn {

// Runs fn on a worker and waits for it; inline when already on one. Converters and the nodes
// that hold them are made on the workers. Sequential, every other worker is stopped meanwhile,
// so that fn may change what tiles are being made from.
void piRunOnWorker(std::function<void()> const& fn, bool sequential = false);

} // namespace Vn
