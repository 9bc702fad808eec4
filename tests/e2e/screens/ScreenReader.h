#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace vocle::testing {

// What a screen reader sees of one widget: its role name as AT-SPI says it ("push button", "text",
// "dialog"), its accessible name, the text it holds, and where it is on the screen.
struct SeenWidget {
    std::string role;
    std::string name;
    std::string text;
    int x = 0, y = 0, width = 0, height = 0;
    bool focused = false;

    int centerX() const { return x + width / 2; }
    int centerY() const { return y + height / 2; }
};

// Reads an application's showing widgets over the desktop's accessibility bus, the way assistive
// technology finds them (each look runs the vocle-test-screen-reader tool in the desktop's environment).
// The test clicks and types with XTest; this only looks.
class ScreenReader {
  public:
    ScreenReader(std::string application, std::map<std::string, std::string> environment);

    // Every showing widget of the application, windows first, in tree order.
    std::vector<SeenWidget> widgets() const;
    // The first showing widget with this name (and this role, unless empty).
    std::optional<SeenWidget> find(const std::string& name, const std::string& role = "") const;
    // Polls until such a widget shows; none when the deadline passed.
    std::optional<SeenWidget> waitFor(const std::string& name, const std::string& role = "",
                                      std::chrono::milliseconds deadline = std::chrono::seconds(10)) const;
    // A readable listing of widgets(), for failure messages.
    std::string dump() const;

  private:
    std::string application_;
    std::map<std::string, std::string> environment_;
};

}  // namespace vocle::testing
