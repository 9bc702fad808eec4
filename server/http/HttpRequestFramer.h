#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vocle::server {

// Finds where one HTTP/1.1 request ends in the bytes received so far, without interpreting it, so that
// a request reaches a worker only when it is complete. The parsing proper stays with cpp-httplib.
// Scans resume where the last one stopped, so a request trickling in is not rescanned from the start.
class HttpRequestFramer {
  public:
    enum class State {
        NeedMore,   // head or body incomplete
        Complete,   // a whole request is at the front of the buffer
        TooLarge,   // the body is larger than allowed (declared, or counted while chunks arrive)
        Malformed,  // the head is larger than allowed or the framing cannot be read
    };

    HttpRequestFramer(size_t maxHeadBytes, size_t maxBodyBytes)
        : maxHeadBytes_(maxHeadBytes), maxBodyBytes_(maxBodyBytes) {}

    // `buffer` must start with the request being framed and only grow between calls until reset().
    State scan(std::string_view buffer);
    void reset();

    bool headComplete() const { return headEnd_ != 0; }
    // The client sent "Expect: 100-continue" and waits for the interim answer before sending the body.
    bool expectsContinue() const { return expectContinue_; }
    // Bytes of the buffer that belong to the complete request (valid after Complete).
    size_t requestEnd() const { return requestEnd_; }
    // "METHOD /path" from the request line, for the log of answers given without the handlers.
    static std::string requestLine(std::string_view buffer);
    // The request as the handlers must see it: without the "Expect" line, whose interim answer has
    // already gone out.
    std::string request(std::string_view buffer) const;

  private:
    State scanHead(std::string_view buffer);
    State scanChunks(std::string_view buffer);

    size_t maxHeadBytes_;
    size_t maxBodyBytes_;
    size_t skipped_ = 0;       // blank lines before the request line
    bool started_ = false;     // the request line has begun
    size_t lineStart_ = 0;     // start of the first head line not yet read
    size_t headEnd_ = 0;       // offset just past the blank line that ends the head
    size_t expectLine_ = 0;    // offset and length of the "Expect" line, 0 when none
    size_t expectLineLength_ = 0;
    bool expectContinue_ = false;
    bool chunked_ = false;
    bool contentLengthSeen_ = false;
    size_t contentLength_ = 0;
    size_t chunkCursor_ = 0;   // next chunk-size line while framing a chunked body
    size_t chunkedBody_ = 0;   // decoded body bytes seen so far
    bool inTrailer_ = false;
    size_t requestEnd_ = 0;
};

}  // namespace vocle::server
