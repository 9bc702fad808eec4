#include "ScreenReader.h"

#include <sstream>
#include <stdexcept>
#include <thread>

#include "support/ChildProcess.h"

namespace vocle::testing {

namespace {

std::string unescaped(const std::string& s) {
    std::string out;
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] == '\\' && i + 1 < s.size()) {
            const char next = s[++i];
            out += next == 't' ? '\t' : next == 'n' ? '\n' : next;
        } else {
            out += s[i];
        }
    }
    return out;
}

std::vector<std::string> fields(const std::string& line) {
    std::vector<std::string> out;
    std::string field;
    std::istringstream in(line);
    while (std::getline(in, field, '\t')) out.push_back(field);
    return out;
}

}  // namespace

ScreenReader::ScreenReader(std::string application, std::map<std::string, std::string> environment)
    : application_(std::move(application)), environment_(std::move(environment)) {}

std::vector<SeenWidget> ScreenReader::widgets() const {
    const auto tool = std::string(VOCLE_BINARY_DIR) + "/tests/vocle-test-screen-reader";
    const RunResult result = runProgram({{tool, application_}, environment_}, std::chrono::seconds(30));
    if (result.status != 0) throw std::runtime_error("vocle-test-screen-reader failed: " + result.output);
    std::vector<SeenWidget> out;
    std::istringstream lines(result.output);
    for (std::string line; std::getline(lines, line);) {
        const auto f = fields(line);
        // Anything else on the output is a library's complaint, not a widget.
        if (f.size() != 8) continue;
        SeenWidget w;
        w.role = unescaped(f[0]);
        w.name = unescaped(f[1]);
        w.text = unescaped(f[2]);
        w.x = std::stoi(f[3]);
        w.y = std::stoi(f[4]);
        w.width = std::stoi(f[5]);
        w.height = std::stoi(f[6]);
        w.focused = f[7] == "1";
        out.push_back(std::move(w));
    }
    return out;
}

std::optional<SeenWidget> ScreenReader::find(const std::string& name, const std::string& role) const {
    for (const auto& w : widgets())
        if (w.name == name && (role.empty() || w.role == role) && w.width > 0 && w.height > 0) return w;
    return std::nullopt;
}

std::optional<SeenWidget> ScreenReader::waitFor(const std::string& name, const std::string& role,
                                                std::chrono::milliseconds deadline) const {
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (true) {
        if (auto found = find(name, role)) return found;
        if (std::chrono::steady_clock::now() >= end) return std::nullopt;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
}

std::string ScreenReader::dump() const {
    std::ostringstream s;
    for (const auto& w : widgets()) {
        s << w.role << " \"" << w.name << "\"";
        if (!w.text.empty() && w.text != w.name) s << " text=\"" << w.text << "\"";
        s << " @" << w.x << "," << w.y << " " << w.width << "x" << w.height << (w.focused ? " focused" : "") << "\n";
    }
    return s.str();
}

}  // namespace vocle::testing
