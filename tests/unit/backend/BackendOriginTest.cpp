#include <gtest/gtest.h>

#include "backend/BackendOrigin.h"
#include "support/TempDir.h"

namespace vocle {
namespace {

TEST(BackendOriginTest, EnvironmentBeatsConfigFileBeatsBuiltInDefault) {
    vocle::testing::TempDir dir;
    MapEnvironment env({{"HOME", dir.path().string()}, {"XDG_CONFIG_HOME", (dir / "config").string()}});

    auto origin = resolveBackendOrigin(env);
    EXPECT_EQ(origin.url, VOCLE_DEFAULT_BACKEND_URL);
    EXPECT_EQ(origin.source, "built-in default");

    std::filesystem::create_directories(dir / "config" / "vocle");
    vocle::testing::writeText(dir / "config" / "vocle" / "backend.conf",
                              "# the team's server\n\n  url = https://vocle.example.org/  # behind nginx\n");
    origin = resolveBackendOrigin(env);
    EXPECT_EQ(origin.url, "https://vocle.example.org");
    EXPECT_EQ(origin.source, (dir / "config" / "vocle" / "backend.conf").string());

    env.set("VOCLE_BACKEND_URL", " http://10.0.0.5:9000/ ");
    origin = resolveBackendOrigin(env);
    EXPECT_EQ(origin.url, "http://10.0.0.5:9000");
    EXPECT_EQ(origin.source, "VOCLE_BACKEND_URL");

    env.set("VOCLE_BACKEND_URL", "");
    EXPECT_EQ(resolveBackendOrigin(env).url, "https://vocle.example.org")
        << "an empty variable is not a setting";
}

TEST(BackendOriginTest, ConfigFileWithoutAUrlEntryFallsBackToTheDefault) {
    vocle::testing::TempDir dir;
    MapEnvironment env({{"HOME", dir.path().string()}, {"XDG_CONFIG_HOME", dir.path().string()}});
    std::filesystem::create_directories(dir / "vocle");
    vocle::testing::writeText(dir / "vocle" / "backend.conf", "origin = https://typo.example.org\nurl =\n");
    EXPECT_EQ(resolveBackendOrigin(env).source, "built-in default");
}

}  // namespace
}  // namespace vocle
