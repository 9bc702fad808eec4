#include <gtest/gtest.h>

#include <thread>

#include "foundation/Base64.h"
#include "foundation/Environment.h"
#include "foundation/FileIO.h"
#include "foundation/NotificationCenter.h"
#include "foundation/OwnerToken.h"
#include "foundation/Signal.h"
#include "foundation/Text.h"
#include "foundation/Uuid.h"
#include "foundation/VirtualMainQueue.h"
#include "support/TempDir.h"

using namespace vocle;

TEST(Base64, RoundTripsEveryPaddingAndRejectsMalformedText) {
    for (const std::string& raw : {std::string(""), std::string("f"), std::string("fo"), std::string("foo"), std::string("foob"), std::string("fooba"), std::string("foobar"), std::string("\0\xff\x80", 3)}) {
        const auto text = base64::encode(raw);
        EXPECT_EQ(text.size(), base64::encodedSize(raw.size()));
        EXPECT_EQ(base64::decode(text), raw);
    }
    EXPECT_EQ(base64::encode("foobar"), "Zm9vYmFy");
    EXPECT_EQ(base64::encode("fo"), "Zm8=");
    for (const char* bad : {"Zm9", "Zm=v", "Zm9v!A==", "Z===", "Zm8=Zm8=", "Zm 8="}) {
        EXPECT_FALSE(base64::decode(bad).has_value()) << bad;
    }
}

TEST(Uuid, CanonicalUpperCaseAndStrictParsing) {
    const Uuid u = Uuid::random();
    const std::string s = u.string();
    EXPECT_EQ(s.size(), 36u);
    EXPECT_EQ(s[14], '4') << "version 4";
    EXPECT_EQ(Uuid::parse(s), u);
    std::string lower = s;
    for (auto& c : lower) c = static_cast<char>(std::tolower(c));
    EXPECT_EQ(Uuid::parse(lower), u);
    EXPECT_FALSE(Uuid::parse(s.substr(1)).has_value());
    EXPECT_FALSE(Uuid::parse("6F9619FF+8B86-D011-B42D-00C04FC964FF").has_value());
    EXPECT_FALSE(Uuid::parse("6F9619FF-8B86-D011-B42D-00C04FC964FG").has_value());
}

TEST(Text, TrimsUnicodeSpaceAndCountsCharactersNotBytes) {
    EXPECT_EQ(trimWhitespace(" \t\n hi there \r\n"), "hi there");
    EXPECT_EQ(trimWhitespace("\xC2\xA0" "x" "\xE2\x80\x83"), "x");
    EXPECT_EQ(trimWhitespace(" \n "), "");
    EXPECT_EQ(firstCharacters("héllo", 2), "hé");
    EXPECT_EQ(firstCharacters("ab", 50), "ab");
    EXPECT_TRUE(isValidUtf8("ok é ✓"));
    EXPECT_FALSE(isValidUtf8("\xC3"));
    EXPECT_FALSE(isValidUtf8("\xFF"));
}

TEST(Environment, XdgRulesIgnoreEmptyAndRelativeValues) {
    MapEnvironment env(std::map<std::string, std::string>{{"HOME", "/home/ann"}});
    EXPECT_EQ(xdgDataHome(env), "/home/ann/.local/share");
    EXPECT_EQ(xdgConfigHome(env), "/home/ann/.config");
    EXPECT_EQ(temporaryDirectory(env), "/tmp");
    env.set("XDG_DATA_HOME", "relative/path");
    EXPECT_EQ(xdgDataHome(env), "/home/ann/.local/share");
    env.set("XDG_DATA_HOME", "/data");
    env.set("TMPDIR", "/var/tmp");
    EXPECT_EQ(xdgDataHome(env), "/data");
    EXPECT_EQ(temporaryDirectory(env), "/var/tmp");
}

TEST(FileIO, AtomicWriteReplacesAndReportsFailures) {
    vocle::testing::TempDir dir;
    const auto file = dir / "a.json";
    ASSERT_TRUE(writeFileAtomically(file, "one"));
    ASSERT_TRUE(writeFileAtomically(file, "two"));
    EXPECT_EQ(readFile(file), "two");
    std::string error;
    EXPECT_FALSE(writeFileAtomically(dir / "missing" / "a.json", "x", &error));
    EXPECT_NE(error.find("missing"), std::string::npos) << error;
    EXPECT_FALSE(readFile(dir / "nope", &error).has_value());
    EXPECT_FALSE(error.empty());
}

TEST(Signals, SubscriptionsEndWithTheirOwnerAndQueueDeliveryIsDeferred) {
    VirtualMainQueue queue;
    Observable<int> value(1);
    std::vector<int> direct, queued;
    {
        auto a = value.subscribe([&](int v) { direct.push_back(v); });
        auto b = value.subscribe([&](int v) { queued.push_back(v); }, &queue);
        value.set(2);
        EXPECT_EQ(direct, std::vector<int>{2});
        EXPECT_TRUE(queued.empty());
        queue.runUntilIdle();
        EXPECT_EQ(queued, std::vector<int>{2});
        value.set(3);
    }
    queue.runUntilIdle();  // b ended before its delivery ran
    value.set(4);
    EXPECT_EQ(direct, (std::vector<int>{2, 3}));
    EXPECT_EQ(queued, std::vector<int>{2});
    value.setIfChanged(4);
    EXPECT_EQ(value.get(), 4);
}

TEST(NotificationCenter, DeliversByNameSenderAndQueue) {
    VirtualMainQueue queue;
    NotificationCenter center;
    int senderA = 0, senderB = 0;
    std::vector<double> levels;
    std::vector<std::string> fromA;
    auto s1 = center.addObserver("AudioLevelUpdate", [&](const Notification& n) {
        levels.push_back(*n.number("level"));
    }, &queue);
    auto s2 = center.addObserver("X", [&](const Notification& n) { fromA.push_back(*n.string("v")); }, nullptr,
                                 &senderA);
    center.post("AudioLevelUpdate", nullptr, {{"level", -20.5f}, {"normalizedLevel", 0.5}});
    center.post("X", &senderB, {{"v", std::string("b")}});
    center.post("X", &senderA, {{"v", std::string("a")}});
    EXPECT_EQ(fromA, std::vector<std::string>{"a"});
    EXPECT_TRUE(levels.empty());
    queue.runUntilIdle();
    EXPECT_EQ(levels, std::vector<double>{-20.5});
    s1.reset();
    center.post("AudioLevelUpdate", nullptr, {{"level", 1}});
    queue.runUntilIdle();
    EXPECT_EQ(levels.size(), 1u);
}

TEST(OwnerToken, GuardedWorkDoesNothingOnceTheOwnerIsGone) {
    VirtualMainQueue queue;
    int ran = 0;
    auto token = std::make_unique<OwnerToken>();
    queue.postAfter(Seconds(1), token->guard([&] { ++ran; }));
    queue.postAfter(Seconds(2), token->guard([&] { ++ran; }));
    queue.advance(1);
    token.reset();
    queue.advance(1);
    EXPECT_EQ(ran, 1);
}

TEST(NotificationCenter, ConcurrentPostsAndRemovalsAreSafe) {
    NotificationCenter center;
    std::atomic<int> seen{0};
    std::thread poster([&] {
        for (int i = 0; i < 2000; ++i) center.post("n");
    });
    for (int i = 0; i < 200; ++i) {
        auto sub = center.addObserver("n", [&](const Notification&) { ++seen; });
    }
    poster.join();
    EXPECT_GE(seen.load(), 0);
    auto last = center.addObserver("n", [&](const Notification&) { seen = -1000000; });
    center.post("n");
    EXPECT_EQ(seen.load(), -1000000);
}
