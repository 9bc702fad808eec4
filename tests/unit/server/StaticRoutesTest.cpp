#include <gtest/gtest.h>

#include <fstream>

#include "desktop/Appcast.h"
#include "http/StaticRoutes.h"
#include "support/TempDir.h"

using namespace vocle;
using vocle::server::StaticRoutes;

TEST(StaticRoutes, ServesTheOperatorsFilesLiveAndAnswers404WhenOneIsMissing) {
    vocle::testing::TempDir dir;
    MapEnvironment env;
    env.set("VOCLE_SERVER_APPCAST_FILE", (dir.path() / "feed.xml").string());
    env.set("VOCLE_SERVER_DOCS_FILE", (dir.path() / "missing.html").string());
    const auto routes = StaticRoutes::fromEnvironment(env);

    EXPECT_FALSE(routes.serve("/settings"));
    EXPECT_EQ(routes.serve("/appcast.xml")->status, 404);
    std::ofstream(dir.path() / "feed.xml") << "<rss><channel></channel></rss>";
    auto feed = routes.serve("/appcast.xml");
    EXPECT_EQ(feed->status, 200);
    EXPECT_EQ(feed->body, "<rss><channel></channel></rss>");
    EXPECT_EQ(feed->contentType.rfind("application/rss+xml", 0), 0u);
    EXPECT_EQ(routes.serve("/docs")->status, 404);
}

TEST(StaticRoutes, TheShippedFeedAndDocsAreServedByDefault) {
    const auto routes = StaticRoutes::fromEnvironment(MapEnvironment());
    auto feed = routes.serve("/appcast.xml");
    ASSERT_EQ(feed->status, 200);
    // The shipped feed is one the client reads.
    auto items = parseAppcast(feed->body);
    ASSERT_TRUE(items.ok());
    ASSERT_FALSE(items.value().empty());
    EXPECT_FALSE(items.value()[0].version.empty());
    auto docs = routes.serve("/docs");
    ASSERT_EQ(docs->status, 200);
    EXPECT_NE(docs->body.find("<title>Vocle"), std::string::npos);
}
