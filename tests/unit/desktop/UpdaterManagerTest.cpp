#include <gtest/gtest.h>

#include "desktop/Appcast.h"
#include "desktop/UpdaterManager.h"
#include "foundation/VirtualMainQueue.h"
#include "unit/desktop/DesktopRig.h"

using namespace vocle;
using vocle::testing::ScriptedAppcastFetcher;

namespace {

std::string feed(const std::string& items) {
    return R"(<?xml version="1.0" encoding="utf-8"?>
<rss version="2.0" xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle">
<channel><title>Vocle</title>)" +
           items + "</channel></rss>";
}

const std::string kTwoReleases = feed(R"(
<item><title>Vocle 1.3</title><link>https://vocle.example.org/releases/1.3</link>
  <description><![CDATA[<ul><li>Faster & calmer</li></ul>]]></description>
  <enclosure url="https://vocle.example.org/dl/vocle-1.3.tar.gz" sparkle:version="130" sparkle:shortVersionString="1.3" length="1" type="application/octet-stream"/>
</item>
<item><title>Vocle 1.10</title>
  <sparkle:releaseNotesLink>https://vocle.example.org/notes/1.10.html</sparkle:releaseNotesLink>
  <enclosure url="https://vocle.example.org/dl/vocle-1.10.tar.gz?a=1&amp;b=2" sparkle:version="1.10.0" length="1" type="application/octet-stream"/>
</item>)");

TEST(Appcast, ParsesEnclosureVersionsNotesAndLinks) {
    auto parsed = parseAppcast(kTwoReleases);
    ASSERT_TRUE(parsed.ok());
    ASSERT_EQ(parsed.value().size(), 2u);
    const auto& a = parsed.value()[0];
    EXPECT_EQ(a.version, "130");
    EXPECT_EQ(a.displayVersion(), "1.3");
    EXPECT_EQ(a.releaseNotes, "<ul><li>Faster & calmer</li></ul>");
    EXPECT_EQ(a.infoURL(), "https://vocle.example.org/releases/1.3");
    const auto& b = parsed.value()[1];
    EXPECT_EQ(b.version, "1.10.0");
    EXPECT_EQ(b.displayVersion(), "1.10.0");
    EXPECT_EQ(b.downloadURL, "https://vocle.example.org/dl/vocle-1.10.tar.gz?a=1&b=2");
    EXPECT_EQ(b.infoURL(), "https://vocle.example.org/notes/1.10.html");

    // Versions given as elements instead of attributes.
    auto elements = parseAppcast(feed("<item><sparkle:version>2.0</sparkle:version><enclosure url=\"u\"/></item>"
                                      "<item><title>no version</title></item>"));
    ASSERT_TRUE(elements.ok());
    ASSERT_EQ(elements.value().size(), 1u);
    EXPECT_EQ(elements.value()[0].version, "2.0");

    EXPECT_FALSE(parseAppcast("<html><body>Not found</body></html>").ok());
    EXPECT_FALSE(parseAppcast("").ok());
}

TEST(Appcast, VersionComparison) {
    EXPECT_GT(compareVersions("1.10", "1.9"), 0);
    EXPECT_EQ(compareVersions("1.0", "1.0"), 0);
    EXPECT_LT(compareVersions("1.0", "1.0.1"), 0);
    EXPECT_GT(compareVersions("1.0", "1.0b2"), 0);
    EXPECT_GT(compareVersions("1.0b2", "1.0b1"), 0);
    EXPECT_LT(compareVersions("1.0a9", "1.0b1"), 0);
    EXPECT_GT(compareVersions("2", "1.99.99"), 0);
    EXPECT_GT(compareVersions("0.1.0", "0.0.9"), 0);
    EXPECT_GT(compareVersions("1.0.1", "1.0b1"), 0);
    auto parsed = parseAppcast(kTwoReleases);
    EXPECT_EQ(newestItem(parsed.value())->version, "130");
}

struct UpdaterRig {
    std::shared_ptr<CapturingLogSink> logs = std::make_shared<CapturingLogSink>();
    ScopedLogSink scoped{logs};
    VirtualMainQueue queue;
    ScriptedAppcastFetcher fetcher;
    std::vector<std::string> found, events;
    UpdaterManager::UserDriver driver{
        [this](const AppcastItem& item, bool user) { found.push_back(item.displayVersion() + (user ? " user" : "")); },
        [this] { events.push_back("up to date"); },
        [this](const std::string& m) { events.push_back("error: " + m); }};
};

TEST(UpdaterManager, ChecksFiveSecondsAfterLaunchThenHourly) {
    UpdaterRig rig;
    UpdaterManager updater(rig.queue, rig.fetcher, {"1.2.0", std::nullopt, "https://vocle.example.org"}, rig.driver);
    EXPECT_TRUE(rig.logs->contains("⚠️ Feed URL was not set in Info.plist, setting programmatically"));
    EXPECT_EQ(updater.feedURL(), "https://vocle.example.org/appcast.xml");
    for (const char* line : {"✅ Automatic updates configured:", "   - Auto check: true", "   - Auto download: true",
                             "   - Check interval: 3600.0"})
        EXPECT_TRUE(rig.logs->contains(line)) << line;

    rig.queue.advance(4.999);
    EXPECT_TRUE(rig.fetcher.urls.empty());
    rig.queue.advance(0.002);
    ASSERT_EQ(rig.fetcher.urls.size(), 1u);
    EXPECT_TRUE(rig.logs->contains("🔍 Performing initial background update check..."));
    rig.fetcher.answer(std::string(kTwoReleases));
    EXPECT_EQ(rig.found, (std::vector<std::string>{"1.3"}));
    ASSERT_TRUE(updater.availableUpdate());

    rig.queue.advance(3600);
    ASSERT_EQ(rig.fetcher.urls.size(), 2u);
    rig.fetcher.answer(std::string(kTwoReleases));
    EXPECT_EQ(rig.found.size(), 1u);  // a background check announces a version once
    rig.queue.advance(3600);
    EXPECT_EQ(rig.fetcher.urls.size(), 3u);
}

TEST(UpdaterManager, ManualCheckAlwaysAnswers) {
    UpdaterRig rig;
    UpdaterManager updater(rig.queue, rig.fetcher, {"200", std::string("http://127.0.0.1:1/feed.xml"), "x"}, rig.driver);
    EXPECT_TRUE(rig.logs->contains("✅ Feed URL configured: http://127.0.0.1:1/feed.xml"));
    updater.checkForUpdates();
    EXPECT_TRUE(rig.logs->contains("🔍 Manual update check requested by user"));
    rig.fetcher.answer(std::string(kTwoReleases));
    EXPECT_EQ(rig.events, (std::vector<std::string>{"up to date"}));
    EXPECT_TRUE(rig.found.empty());

    updater.checkForUpdates();
    rig.fetcher.answer(Error{"Appcast", 404, "the update feed answered with status 404"});
    EXPECT_EQ(rig.events.back(), "error: the update feed answered with status 404");

    // A manual check during a background one takes over its outcome; no second fetch.
    rig.queue.advance(5);
    updater.checkForUpdates();
    EXPECT_EQ(rig.fetcher.waiting.size(), 1u);
    rig.fetcher.answer(std::string("garbage"));
    EXPECT_EQ(rig.events.back(), "error: the update feed is not an RSS document");
}

TEST(UpdaterManager, NewerVersionFromAManualCheckIsShownEvenIfAnnouncedBefore) {
    UpdaterRig rig;
    UpdaterManager updater(rig.queue, rig.fetcher, {"129", std::nullopt, "https://vocle.example.org"}, rig.driver);
    rig.queue.advance(5);
    rig.fetcher.answer(std::string(kTwoReleases));
    updater.checkForUpdates();
    rig.fetcher.answer(std::string(kTwoReleases));
    EXPECT_EQ(rig.found, (std::vector<std::string>{"1.3", "1.3 user"}));
}

TEST(UpdaterManager, AnUnusableFeedURLLeavesTheUpdaterOff) {
    UpdaterRig rig;
    UpdaterManager updater(rig.queue, rig.fetcher, {"1.0", std::string("not a url"), ""}, rig.driver);
    EXPECT_TRUE(rig.logs->contains("❌ Failed to access Sparkle updater"));
    EXPECT_FALSE(rig.logs->contains("✅ Automatic updates configured:"));
    rig.queue.advance(10000);
    updater.checkForUpdates();
    EXPECT_TRUE(rig.fetcher.urls.empty());
}

}  // namespace
