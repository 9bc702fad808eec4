#pragma once

typedef struct _XDisplay Display;

namespace vocle::x11 {

// Catches protocol errors on our own Display connections. Xlib's default handler ends the process, and
// the handler is process-wide, so errors on displays we did not adopt go on to the handler that was
// installed before ours (Qt's, or Xlib's default).
class XErrorTrap {
  public:
    // Marks `display` as ours: its errors never reach the previous handler. Errors outside a trap are
    // logged.
    static void adopt(Display* display);
    static void release(Display* display);

    // A lost X connection, noticed by any thread on any of the process's displays (Qt's included), ends
    // the process with status 1 through endProcessNow(): Xlib's default would call exit() from that
    // thread, racing the other threads and a second exit().
    static void endProcessOnConnectionLoss();

    // Collects errors on `display` until destroyed. Use from the thread that owns the connection.
    explicit XErrorTrap(Display* display);
    ~XErrorTrap();
    XErrorTrap(const XErrorTrap&) = delete;
    XErrorTrap& operator=(const XErrorTrap&) = delete;

    // Waits for the server to process every request sent so far; returns the first error code since
    // the trap was set (0: none).
    int sync();

  private:
    Display* display_;
};

}  // namespace vocle::x11
