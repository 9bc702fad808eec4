#pragma once

#include <memory>
#include <mutex>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace vocle {

// Where log lines go. The process has one current sink (standard output by default); tests swap in a
// CapturingLogSink with ScopedLogSink.
class LogSink {
public:
    virtual ~LogSink() = default;
    virtual void write(std::string_view line) = 0;
};

class StdoutLogSink final : public LogSink {
public:
    void write(std::string_view line) override;
};

// Writes each line to a stream (the CLI sends log lines to standard error, keeping standard output for
// its results). Not locked: for single-threaded tools.
class StreamLogSink final : public LogSink {
public:
    explicit StreamLogSink(std::ostream& out) : out_(out) {}
    void write(std::string_view line) override { out_ << line << '\n'; }

private:
    std::ostream& out_;
};

class DiscardLogSink final : public LogSink {
public:
    void write(std::string_view) override {}
};

class CapturingLogSink final : public LogSink {
public:
    explicit CapturingLogSink(bool echo = false) : echo_(echo) {}
    void write(std::string_view line) override;
    std::vector<std::string> lines() const;
    bool contains(std::string_view fragment) const;
    size_t count(std::string_view fragment) const;
    void clear();

private:
    bool echo_;
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
};

std::shared_ptr<LogSink> currentLogSink();
void setLogSink(std::shared_ptr<LogSink> sink);

// Installs a sink for the lifetime of the object, then restores the previous one.
class ScopedLogSink {
public:
    explicit ScopedLogSink(std::shared_ptr<LogSink> sink);
    ~ScopedLogSink();
    ScopedLogSink(const ScopedLogSink&) = delete;
    ScopedLogSink& operator=(const ScopedLogSink&) = delete;

private:
    std::shared_ptr<LogSink> previous_;
};

// One line; embedded newlines are kept as they are (the default replacements log a line feed).
void logLine(std::string_view line);

template <class... Parts>
void log(const Parts&... parts) {
    std::ostringstream out;
    (out << ... << parts);
    logLine(out.str());
}

// "true"/"false", as the log texts print booleans.
inline const char* boolText(bool b) { return b ? "true" : "false"; }

// Seconds since 1970 with fraction, as "TIMESTAMP: {t}" prints it.
std::string formatTimestamp(double unixSeconds);

}  // namespace vocle
