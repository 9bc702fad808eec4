#pragma once

namespace vocle {

// The process may end from any thread: Qt calls exit(1) when its X connection breaks, Xlib's I/O error
// path does the same on whichever thread noticed, and background threads (X watchers, the sound server
// loop, the HTTP worker) keep running while exit() destroys static objects under them. These end the
// process without that teardown once the event loop is running.

// Ends the process now with `status`: standard output is flushed, no destructors run. The first caller
// wins; a second thread calling meanwhile waits for the end.
[[noreturn]] void endProcessNow(int status);

// From here on an exit() that did not come from orderlyExit() ends the process through endProcessNow(1).
// Call once the objects with background threads exist, just before entering the event loop.
void guardUnplannedExit();

// The event loop returned and the threads are stopped: the ordinary exit (with static teardown) follows.
void markOrderlyExit();

}  // namespace vocle
