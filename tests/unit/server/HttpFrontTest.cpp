#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "http/ConnectionTable.h"
#include "http/HttpRequestFramer.h"

using namespace vocle::server;
using State = HttpRequestFramer::State;
using Phase = ConnectionTable::Phase;

namespace {

// Feeds `bytes` one at a time, as a slow client would, and returns the state after each byte.
std::vector<State> trickle(HttpRequestFramer& framer, const std::string& bytes) {
    std::vector<State> states;
    for (size_t i = 1; i <= bytes.size(); ++i) states.push_back(framer.scan(std::string_view(bytes).substr(0, i)));
    return states;
}

}  // namespace

TEST(HttpRequestFramerTest, ARequestIsCompleteOnlyWithItsWholeBody) {
    HttpRequestFramer framer(1024, 100);
    const std::string request = "POST /settings HTTP/1.1\r\nHost: x\r\ncontent-LENGTH: 5\r\n\r\nhello";
    const auto states = trickle(framer, request + "GET / HTTP/1.1\r\n");
    // Incomplete up to the last body byte, complete from there on, whatever follows.
    for (size_t i = 0; i + 1 < request.size(); ++i) ASSERT_EQ(states[i], State::NeedMore) << "after byte " << i;
    for (size_t i = request.size() - 1; i < states.size(); ++i) EXPECT_EQ(states[i], State::Complete);
    EXPECT_EQ(framer.requestEnd(), request.size());
    EXPECT_EQ(framer.request(request), request);

    framer.reset();
    EXPECT_EQ(framer.scan("GET /settings HTTP/1.1\r\nHost: x\r\n"), State::NeedMore);
    EXPECT_FALSE(framer.headComplete());
    EXPECT_EQ(framer.scan("GET /settings HTTP/1.1\r\nHost: x\r\n\r\n"), State::Complete);

    // Blank lines before a request are skipped; a bare LF ends lines as well.
    framer.reset();
    const std::string lf = "\r\n\r\nGET /a HTTP/1.1\nHost: x\n\n";
    EXPECT_EQ(framer.scan(lf), State::Complete);
    EXPECT_EQ(framer.request(lf), "GET /a HTTP/1.1\nHost: x\n\n");
    EXPECT_EQ(framer.requestEnd(), lf.size());
}

TEST(HttpRequestFramerTest, ChunkedBodiesEndAtTheLastChunkAndTrailer) {
    HttpRequestFramer framer(1024, 100);
    const std::string request =
        "POST /t HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n5;ext=1\r\nhello\r\nA\r\n0123456789\r\n0\r\nX-T: 1\r\n\r\n";
    const auto states = trickle(framer, request);
    EXPECT_TRUE(std::all_of(states.begin(), states.end() - 1, [](State s) { return s == State::NeedMore; }));
    EXPECT_EQ(states.back(), State::Complete);
    EXPECT_EQ(framer.requestEnd(), request.size());

    framer.reset();
    EXPECT_EQ(framer.scan("POST /t HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n"), State::Malformed);
    framer.reset();
    EXPECT_EQ(framer.scan("POST /t HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabcXY"), State::Malformed);
    // The running total of chunks is held to the body limit before the data arrives.
    framer.reset();
    EXPECT_EQ(framer.scan("POST /t HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n60\r\n" + std::string(96, 'a') +
                          "\r\n60\r\n"),
              State::TooLarge);
}

TEST(HttpRequestFramerTest, LimitsAndHostileHeads) {
    HttpRequestFramer framer(64, 100);
    // Declared too large: refused at the head, the body is never waited for.
    EXPECT_EQ(framer.scan("POST /t HTTP/1.1\r\nContent-Length: 101\r\n\r\n"), State::TooLarge);
    framer.reset();
    EXPECT_EQ(framer.scan("POST /t HTTP/1.1\r\nContent-Length: 100\r\n\r\n"), State::NeedMore);
    // A head that never ends, with or without line breaks, stops at the head limit.
    framer.reset();
    EXPECT_EQ(framer.scan("GET / HTTP/1.1\r\n" + std::string(60, 'a')), State::Malformed);
    framer.reset();
    std::string lines = "GET / HTTP/1.1\r\n";
    while (lines.size() < 70) lines += "A: b\r\n";
    EXPECT_EQ(framer.scan(lines), State::Malformed);
    framer.reset();
    EXPECT_EQ(framer.scan(std::string(65, '\n')), State::Malformed);
    // Lengths that cannot be trusted.
    for (const char* bad : {"Content-Length: -1", "Content-Length: 1x", "Content-Length: 99999999999999999999"}) {
        framer.reset();
        EXPECT_EQ(framer.scan(std::string("POST / HTTP/1.1\r\n") + bad + "\r\n\r\n"), State::Malformed) << bad;
    }
    framer.reset();
    EXPECT_EQ(framer.scan("POST / HTTP/1.1\r\nContent-Length: 1\r\nContent-Length: 2\r\n\r\n"), State::Malformed);
}

TEST(HttpRequestFramerTest, ExpectContinueIsAnsweredByTheFrontAndHiddenFromTheParser) {
    HttpRequestFramer framer(1024, 100);
    const std::string head = "PUT /x HTTP/1.1\r\nExpect: 100-continue\r\nContent-Length: 3\r\n\r\n";
    EXPECT_EQ(framer.scan(head), State::NeedMore);
    EXPECT_TRUE(framer.headComplete());
    EXPECT_TRUE(framer.expectsContinue());
    EXPECT_EQ(framer.scan(head + "abc"), State::Complete);
    EXPECT_EQ(framer.request(head + "abc"), "PUT /x HTTP/1.1\r\nContent-Length: 3\r\n\r\nabc");
    EXPECT_EQ(HttpRequestFramer::requestLine(head), "PUT /x");
    EXPECT_EQ(HttpRequestFramer::requestLine("GET /a?b=c HTTP/1.1\r\n"), "GET /a");
    EXPECT_EQ(HttpRequestFramer::requestLine("garbage"), "- -");
}

TEST(ConnectionTableTest, AClientAtItsCapPushesOutItsOwnLongestWaitingConnection) {
    ConnectionTable table(100, 3);
    table.add(1, "10.0.0.1", 0, 10);
    table.add(2, "10.0.0.1", 1, 11);
    table.add(3, "10.0.0.1", 2, 12);
    table.add(4, "10.0.0.2", 0, 10);
    table.setPhase(1, Phase::Busy, 3, std::numeric_limits<double>::infinity());

    auto admission = table.admit("10.0.0.1");
    EXPECT_TRUE(admission.accepted);
    EXPECT_EQ(admission.evicted, std::vector<uint64_t>{2});  // 1 is being served, 2 waited longest
    EXPECT_TRUE(table.admit("10.0.0.2").evicted.empty());

    // Back to waiting restarts the age: 1 is now the newest waiter.
    table.setPhase(1, Phase::Waiting, 5, 10);
    EXPECT_EQ(table.admit("10.0.0.1").evicted, std::vector<uint64_t>{2});
    table.remove(2);
    EXPECT_EQ(table.countFor("10.0.0.1"), 2u);
    EXPECT_TRUE(table.admit("10.0.0.1").evicted.empty());

    // Nobody of the client is waiting: the newcomer is refused instead.
    table.add(5, "10.0.0.1", 6, 16);
    for (uint64_t id : {1, 3, 5}) table.setPhase(id, Phase::Receiving, 7, 67);
    EXPECT_FALSE(table.admit("10.0.0.1").accepted);
}

TEST(ConnectionTableTest, TheServerCapTakesTheLongestWaiterOfAnyClient) {
    ConnectionTable table(3, 3);
    table.add(1, "a", 5, 100);
    table.add(2, "b", 1, 100);
    table.add(3, "c", 3, 100);
    auto admission = table.admit("d");
    EXPECT_TRUE(admission.accepted);
    EXPECT_EQ(admission.evicted, std::vector<uint64_t>{2});
    // At both caps, the client's own eviction makes room for the server as well; when the client has
    // nobody waiting, others' idle connections do not pay for it.
    ConnectionTable both(2, 1);
    both.add(1, "a", 0, 100);
    both.add(2, "b", 1, 100);
    EXPECT_EQ(both.admit("b").evicted, std::vector<uint64_t>{2});
    both.setPhase(2, Phase::Busy, 2, 100);
    EXPECT_FALSE(both.admit("b").accepted);
    EXPECT_EQ(both.admit("c").evicted, std::vector<uint64_t>{1});
}

TEST(ConnectionTableTest, DeadlinesExpireExceptWhileAWorkerHasTheRequest) {
    ConnectionTable table(10, 10);
    table.add(1, "a", 0, 10);
    table.add(2, "a", 0, 20);
    table.add(3, "a", 0, 5);
    table.setPhase(3, Phase::Busy, 1, std::numeric_limits<double>::infinity());
    EXPECT_TRUE(table.expired(9.99).empty());
    EXPECT_EQ(table.expired(10), std::vector<uint64_t>{1});
    table.setDeadline(1, 30);
    auto late = table.expired(1e9);
    std::sort(late.begin(), late.end());
    EXPECT_EQ(late, (std::vector<uint64_t>{1, 2}));
}
