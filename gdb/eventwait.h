// Waiting on the GUI thread for something another thread or gdb brings
// about, without blocking the events that bring it.
#pragma once

#include <functional>

namespace arraylens::gdb {

// Keeps the calling thread's event loop turning until `done` holds or time
// runs out, looking every millisecond; gives what the last look at done()
// said. processEvents with a
// time limit does not wait for events, it spins, and a spinning thread
// takes a core from the engine's threads while they compute.
bool waitWithEventLoop(const std::function<bool()>& done, int timeoutMs);

} // namespace arraylens::gdb
