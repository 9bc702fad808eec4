#include "http/HttpRequestFramer.h"

#include <cctype>

namespace vocle::server {

namespace {

std::string_view trim(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) s.remove_suffix(1);
    return s;
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i])))
            return false;
    }
    return true;
}

bool containsIgnoringCase(std::string_view haystack, std::string_view needle) {
    for (size_t i = 0; i + needle.size() <= haystack.size(); ++i) {
        if (equalsIgnoringCase(haystack.substr(i, needle.size()), needle)) return true;
    }
    return false;
}

// Digits only, no sign, no overflow.
bool parseDecimal(std::string_view s, size_t& out) {
    if (s.empty() || s.size() > 18) return false;
    size_t value = 0;
    for (char ch : s) {
        if (ch < '0' || ch > '9') return false;
        value = value * 10 + static_cast<size_t>(ch - '0');
    }
    out = value;
    return true;
}

bool parseHex(std::string_view s, size_t& out) {
    if (s.empty() || s.size() > 15) return false;
    size_t value = 0;
    for (char ch : s) {
        const int digit = std::isdigit(static_cast<unsigned char>(ch))
                              ? ch - '0'
                              : (std::tolower(static_cast<unsigned char>(ch)) >= 'a' &&
                                         std::tolower(static_cast<unsigned char>(ch)) <= 'f'
                                     ? std::tolower(static_cast<unsigned char>(ch)) - 'a' + 10
                                     : -1);
        if (digit < 0) return false;
        value = value * 16 + static_cast<size_t>(digit);
    }
    out = value;
    return true;
}

// A chunk-size or trailer line may not run on without end.
constexpr size_t kMaxChunkLine = 4096;

}  // namespace

void HttpRequestFramer::reset() {
    *this = HttpRequestFramer(maxHeadBytes_, maxBodyBytes_);
}

HttpRequestFramer::State HttpRequestFramer::scan(std::string_view buffer) {
    if (requestEnd_ != 0) return State::Complete;
    if (headEnd_ == 0) {
        const State head = scanHead(buffer);
        if (head != State::Complete) return head;
        if (!chunked_ && contentLength_ > maxBodyBytes_) return State::TooLarge;
    }
    if (chunked_) return scanChunks(buffer);
    if (buffer.size() - headEnd_ < contentLength_) return State::NeedMore;
    requestEnd_ = headEnd_ + contentLength_;
    return State::Complete;
}

HttpRequestFramer::State HttpRequestFramer::scanHead(std::string_view buffer) {
    if (!started_) {
        // Blank lines between requests are allowed and skipped.
        while (skipped_ < buffer.size() && (buffer[skipped_] == '\r' || buffer[skipped_] == '\n')) ++skipped_;
        if (skipped_ > maxHeadBytes_) return State::Malformed;
        if (skipped_ == buffer.size()) return State::NeedMore;
        started_ = true;
        lineStart_ = skipped_;
    }
    for (;;) {
        const size_t newline = buffer.find('\n', lineStart_);
        if (newline == std::string_view::npos) break;
        const std::string_view line = trim(buffer.substr(lineStart_, newline - lineStart_));
        const size_t start = lineStart_;
        lineStart_ = newline + 1;
        if (lineStart_ - skipped_ > maxHeadBytes_) return State::Malformed;
        if (line.empty()) {
            headEnd_ = lineStart_;
            return State::Complete;
        }
        if (start == skipped_) continue;  // the request line
        const size_t colon = line.find(':');
        if (colon == std::string_view::npos) continue;  // left for the parser to refuse
        const std::string_view name = trim(line.substr(0, colon));
        const std::string_view value = trim(line.substr(colon + 1));
        if (equalsIgnoringCase(name, "content-length")) {
            size_t length = 0;
            if (!parseDecimal(value, length) || (contentLengthSeen_ && length != contentLength_))
                return State::Malformed;
            contentLength_ = length;
            contentLengthSeen_ = true;
        } else if (equalsIgnoringCase(name, "transfer-encoding")) {
            chunked_ = containsIgnoringCase(value, "chunked");
        } else if (equalsIgnoringCase(name, "expect") && equalsIgnoringCase(value, "100-continue")) {
            expectContinue_ = true;
            expectLine_ = start;
            expectLineLength_ = lineStart_ - start;
        }
    }
    if (buffer.size() - skipped_ > maxHeadBytes_) return State::Malformed;
    return State::NeedMore;
}

HttpRequestFramer::State HttpRequestFramer::scanChunks(std::string_view buffer) {
    if (chunkCursor_ == 0) chunkCursor_ = headEnd_;
    for (;;) {
        const size_t newline = buffer.find('\n', chunkCursor_);
        if (newline == std::string_view::npos) {
            return buffer.size() - chunkCursor_ > kMaxChunkLine ? State::Malformed : State::NeedMore;
        }
        const std::string_view line = trim(buffer.substr(chunkCursor_, newline - chunkCursor_));
        if (inTrailer_) {
            chunkCursor_ = newline + 1;
            if (line.empty()) {
                requestEnd_ = chunkCursor_;
                return State::Complete;
            }
            if (chunkCursor_ - headEnd_ - chunkedBody_ > maxHeadBytes_) return State::Malformed;
            continue;
        }
        size_t size = 0;
        if (!parseHex(trim(line.substr(0, line.find(';'))), size)) return State::Malformed;
        if (size == 0) {
            chunkCursor_ = newline + 1;
            inTrailer_ = true;
            continue;
        }
        if (chunkedBody_ + size > maxBodyBytes_) return State::TooLarge;
        // The data and its CRLF must be here before the next size line can be read.
        const size_t next = newline + 1 + size + 2;
        if (buffer.size() < next) return State::NeedMore;
        if (buffer.substr(next - 2, 2) != "\r\n") return State::Malformed;
        chunkedBody_ += size;
        chunkCursor_ = next;
    }
}

std::string HttpRequestFramer::request(std::string_view buffer) const {
    std::string result;
    const std::string_view whole = buffer.substr(skipped_, requestEnd_ - skipped_);
    if (expectLineLength_ == 0) return std::string(whole);
    const size_t at = expectLine_ - skipped_;
    result.reserve(whole.size() - expectLineLength_);
    result.append(whole.substr(0, at));
    result.append(whole.substr(at + expectLineLength_));
    return result;
}

std::string HttpRequestFramer::requestLine(std::string_view buffer) {
    while (!buffer.empty() && (buffer.front() == '\r' || buffer.front() == '\n')) buffer.remove_prefix(1);
    buffer = buffer.substr(0, std::min<size_t>(buffer.find_first_of("\r\n"), 200));
    const size_t method = buffer.find(' ');
    if (method == std::string_view::npos) return "- -";
    const std::string_view rest = buffer.substr(method + 1);
    std::string_view target = rest.substr(0, rest.find(' '));
    target = target.substr(0, target.find('?'));
    return std::string(buffer.substr(0, method)) + " " + std::string(target);
}

}  // namespace vocle::server
