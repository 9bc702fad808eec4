#pragma once

#include <mutex>

typedef struct _GMainContext GMainContext;

namespace vocle::atspi {

// libatspi keeps process-wide state (the desktop, its caches, the bus): every call into it, from any
// component, holds this lock. Recursive, because releasing an element takes it too.
std::recursive_mutex& lock();

// Connects this process to the accessibility bus, once: later calls report the first outcome. The
// connection is attached to a private main context, never to the one Qt's loop runs. Call with lock().
bool connect();
// That context; null before a successful connect().
GMainContext* context();
// Handles the bus's queued messages (events, applications coming and going); bounded, because libatspi
// keeps an idle source on the context, so it is never quite empty. Call with lock().
void drainEvents();

// Per D-Bus call: reads stay well inside the reader's one-second budget.
inline constexpr int kCallTimeoutMs = 250;

}  // namespace vocle::atspi
