#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <regex>
#include <thread>

#include "app/ServerApp.h"
#include "core/AppConstants.h"
#include "integration/modes/AppStateGraph.h"
#include "storage/SessionStore.h"

using namespace vocle;
using vocle::testing::AppStateGraph;
using vocle::testing::readText;
using vocle::testing::runUntil;
using vocle::testing::TempDir;

namespace {

// The real vocle-server in this process, with its mail going to an outbox folder.
struct RealServer {
    RealServer() {
        config.dataDir = dir.path();
        config.listenPort = 0;
        config.speechEngine = "command";
        config.command = "true";
        app = std::make_unique<server::ServerApp>(config, clock);
        port = app->start();
    }
    ~RealServer() { app->stop(); }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(port); }

    // The code of the latest sign-in mail, waiting (in real time) for it to be written.
    std::string latestCode() const {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (std::chrono::steady_clock::now() < deadline) {
            std::string code;
            if (std::filesystem::exists(config.outboxDir())) {
                for (const auto& entry : std::filesystem::directory_iterator(config.outboxDir())) {
                    std::smatch m;
                    const std::string text = readText(entry.path());
                    if (std::regex_search(text, m, std::regex("\\n +([0-9]{6})\\r?\\n"))) code = m[1];
                }
            }
            if (!code.empty()) return code;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return {};
    }

    TempDir dir;
    SystemClock clock;
    server::ServerConfig config;
    std::unique_ptr<server::ServerApp> app;
    int port = 0;
};

std::string cliPath() {
    return std::string(VOCLE_BINARY_DIR) + "/tools/vocle-cli/vocle-cli";
}

// Runs vocle-cli with the data folder and backend given, feeding `input` once `before` returned it.
int runCli(const std::string& args, const std::filesystem::path& dataHome, const std::string& backendURL,
           const std::function<std::string()>& input, std::string* output = nullptr) {
    const auto outFile = dataHome / "cli-out.txt";
    const std::string command = "XDG_DATA_HOME='" + dataHome.string() + "' VOCLE_BACKEND_URL='" + backendURL +
                                "' '" + cliPath() + "' " + args + " > '" + outFile.string() + "' 2>&1";
    FILE* pipe = popen(command.c_str(), "w");
    if (!pipe) return -1;
    if (input) {
        const std::string text = input();
        fwrite(text.data(), 1, text.size(), pipe);
        fflush(pipe);
    }
    const int status = pclose(pipe);
    if (output) *output = readText(outFile);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(RealServer, CliSignInThenStartUpWritesTheModesThatVocleCliShows) {
    ASSERT_TRUE(std::filesystem::exists(cliPath())) << "build the vocle-cli target first";
    RealServer srv;
    TempDir home;
    std::string out;
    // A wrong code first, then the mailed one: the session ends up stored.
    const int rc = runCli(
        "signin ada@example.org", home.path(), srv.url(),
        [&] { return "000000\n" + srv.latestCode() + "\n"; }, &out);
    EXPECT_EQ(rc, 0) << out;
    EXPECT_NE(out.find("Invalid code"), std::string::npos) << out;
    EXPECT_NE(out.find("Signed in as ada@example.org"), std::string::npos) << out;

    // The application starting on that data folder runs start-up against the real server.
    {
        AppStateGraph g(AppStateGraph::Options{false, srv.url(), home.path()});
        auto& app = g.app();
        EXPECT_FALSE(app.requiresSignIn.get());
        ASSERT_TRUE(
            runUntil(g.queue, [&] { return !app.isInitializing.get() || app.initializationError.get(); }));
        ASSERT_FALSE(app.initializationError.get().has_value()) << *app.initializationError.get();
        EXPECT_EQ(g.modeManager->modes.get().size(), 1u);
        EXPECT_EQ(g.modeManager->modes.get()[0].modeTypeId, kDefaultModeTypeId)
            << "typed from the server's catalogue";
        g.queue.advance(1.5);
        ASSERT_TRUE(runUntil(g.queue, [&] { return g.logs->contains("SettingsCoordinator: Cloud backup"); }));
        EXPECT_TRUE(g.logs->contains("SettingsCoordinator: Cloud backup successful, version 1"));
    }

    // `vocle-cli modes` shows what start-up wrote.
    ASSERT_EQ(runCli("modes", home.path(), srv.url(), nullptr, &out), 0) << out;
    const auto json = out.substr(out.find('['));
    const Json modes = parseJson(json.substr(0, json.rfind(']') + 1));
    ASSERT_EQ(modes.size(), 1u) << out;
    EXPECT_EQ(modes[0].at("name"), "Default");
    EXPECT_EQ(modes[0].at("isDefault"), true);

    // Signing out ends the session; the modes stay.
    ASSERT_EQ(runCli("signout", home.path(), srv.url(), nullptr, &out), 0);
    EXPECT_NE(out.find("Signed out"), std::string::npos) << out;
    DataFolder folder(home.path());
    VirtualMainQueue queue;
    FileStorageManager files(folder, queue);
    EXPECT_FALSE(SessionStore(files).load().has_value());
    EXPECT_EQ(LocalSettingsStore(folder, queue).loadModes()->size(), 1u);
}

}  // namespace
