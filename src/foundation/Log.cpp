#include "foundation/Log.h"

#include <cstdio>
#include <iomanip>

namespace vocle {

namespace {
// Both are leaked on purpose: a background thread may still log while exit() runs static destructors
// (a lost X server or session bus ends the process from whichever thread notices first).
std::mutex& sinkMutex() {
    static auto* m = new std::mutex;
    return *m;
}
std::shared_ptr<LogSink>& sinkSlot() {
    static auto* sink = new std::shared_ptr<LogSink>(std::make_shared<StdoutLogSink>());
    return *sink;
}
}  // namespace

void StdoutLogSink::write(std::string_view line) {
    // One fwrite per line keeps lines whole when several threads log.
    std::string buffer(line);
    buffer.push_back('\n');
    std::fwrite(buffer.data(), 1, buffer.size(), stdout);
    std::fflush(stdout);
}

void CapturingLogSink::write(std::string_view line) {
    {
        std::lock_guard lock(mutex_);
        lines_.emplace_back(line);
    }
    if (echo_) StdoutLogSink().write(line);
}

std::vector<std::string> CapturingLogSink::lines() const {
    std::lock_guard lock(mutex_);
    return lines_;
}

bool CapturingLogSink::contains(std::string_view fragment) const { return count(fragment) > 0; }

size_t CapturingLogSink::count(std::string_view fragment) const {
    std::lock_guard lock(mutex_);
    size_t n = 0;
    for (const auto& l : lines_) {
        if (l.find(fragment) != std::string::npos) ++n;
    }
    return n;
}

void CapturingLogSink::clear() {
    std::lock_guard lock(mutex_);
    lines_.clear();
}

std::shared_ptr<LogSink> currentLogSink() {
    std::lock_guard lock(sinkMutex());
    return sinkSlot();
}

void setLogSink(std::shared_ptr<LogSink> sink) {
    std::lock_guard lock(sinkMutex());
    sinkSlot() = sink ? std::move(sink) : std::make_shared<StdoutLogSink>();
}

ScopedLogSink::ScopedLogSink(std::shared_ptr<LogSink> sink) : previous_(currentLogSink()) {
    setLogSink(std::move(sink));
}

ScopedLogSink::~ScopedLogSink() { setLogSink(previous_); }

void logLine(std::string_view line) { currentLogSink()->write(line); }

std::string formatTimestamp(double unixSeconds) {
    std::ostringstream out;
    out << std::fixed << std::setprecision(6) << unixSeconds;
    return out.str();
}

}  // namespace vocle
