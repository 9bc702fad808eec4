// A dictation the backend cannot take is kept in the data folder; vocle-cli lists it, drops it or sends it
// again to the real vocle-server once that answers, and the transcript lands in the history.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <cstdio>
#include <optional>

#include "backend/AudioFileProcessor.h"
#include "backend/BackendService.h"
#include "backend/SignInClient.h"
#include "desktop/DictationRetry.h"
#include "foundation/DispatchQueue.h"
#include "foundation/Log.h"
#include "integration/backend/BackendTestSupport.h"
#include "integration/server/ServerFixture.h"
#include "platform/testing/FakeAlerts.h"
#include "storage/HistoryService.h"
#include "storage/PendingDictationStore.h"
#include "storage/SessionStore.h"

using namespace vocle;
using namespace vocle::testing;

namespace {

namespace fs = std::filesystem;

const fs::path kClip = kLibrivox / "sense_and_sensibility_01_austen_64kb-0880.wav";
const fs::path kCli = fs::path(VOCLE_BINARY_DIR) / "tools" / "vocle-cli" / "vocle-cli";
// Nothing listens on port 1 of the loopback: every connection is refused.
constexpr const char* kDeadBackend = "http://127.0.0.1:1";

std::string quoted(const std::string& s) {
    std::string q = "'";
    for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

struct CliRun {
    int exitCode = -1;
    std::string out;
    std::string err;
};

class KeptDictationTest : public ::testing::Test {
  protected:
    TestServer server;
    TempDir home;
    PumpedMainQueue mainQueue;
    std::shared_ptr<CapturingLogSink> logs = std::make_shared<CapturingLogSink>();
    ScopedLogSink scopedLogs{logs};
    DataFolder folder{home.path() / "data"};
    std::unique_ptr<FileStorageManager> files;
    std::unique_ptr<SessionStore> sessions;
    std::unique_ptr<HistoryService> history;
    std::unique_ptr<PendingDictationStore> store;
    std::unique_ptr<BackendService> backend;
    SerialThreadQueue conversionQueue{"audioConversionQueue"};
    FakeAlerts alerts;
    std::unique_ptr<DictationRetry> retry;
    std::unique_ptr<AudioFileProcessor> processor;

    void SetUp() override {
        ASSERT_TRUE(fs::exists(kCli)) << "build the vocle-cli target first: " << kCli;
        // The command line expires kept dictations on the system clock: record them at today's date.
        mainQueue.virtualQueue.shiftWallClock(Seconds(SystemClock().now() - mainQueue.now()));
        fs::create_directories(home.path() / "tmp");
        files = std::make_unique<FileStorageManager>(folder, mainQueue.clock());
        sessions = std::make_unique<SessionStore>(*files);
        history = std::make_unique<HistoryService>(folder, mainQueue.clock());
        store = std::make_unique<PendingDictationStore>(folder, mainQueue.clock());
    }

    void TearDown() override {
        processor.reset();
        retry.reset();
        backend.reset();
    }

    // The app's upload pipeline against `origin`, keeping what fails.
    void connect(const std::string& origin) {
        processor.reset();
        retry.reset();
        backend = std::make_unique<BackendService>(origin, "test", mainQueue, *sessions, files->deviceId());
        if (auto session = sessions->load()) {
            backend->setAccessToken(session->accessToken);
            backend->setRefreshToken(session->refreshToken);
        }
        retry = std::make_unique<DictationRetry>(DictationRetry::Dependencies{
            mainQueue, *backend, *store, *history, {}, [] { return std::optional<Mode>(); }, &alerts});
        processor = std::make_unique<AudioFileProcessor>(
            *backend, mainQueue, conversionQueue, alerts, [] {}, home.path() / "tmp");
        processor->setFailedDictationKeeper(retry.get());
    }

    void signIn(const std::string& email) {
        connect("http://127.0.0.1:" + std::to_string(server.port));
        bool sent = false;
        SignInClient signInClient(*backend);
        auto s1 = signInClient.sendOTP(email, [&] { sent = true; });
        ASSERT_TRUE(mainQueue.pumpUntil([&] { return sent; }));
        std::optional<VerifyOTPResult> verified;
        auto s2 =
            signInClient.verifyOTP(email, server.latestCode(email), [&](VerifyOTPResult r) { verified = r; });
        ASSERT_TRUE(mainQueue.pumpUntil([&] { return verified.has_value(); }));
        ASSERT_EQ(verified->outcome, VerifyOTPResult::Outcome::verified);
        sessions->save(verified->session);
    }

    // One dictation through the pipeline, up to the closed alert.
    void dictate() {
        Mode mode = Mode::fresh("Default");
        mode.type = "Raw";
        std::optional<Result<std::string>> outcome;
        const size_t alertsBefore = alerts.shown.size();
        processor->processRecording(kClip, mode, "", {Replacement::make("young man", "youth")},
                                    [&](Result<std::string> r) { outcome.emplace(std::move(r)); });
        ASSERT_TRUE(mainQueue.pumpUntil([&] { return alerts.shown.size() > alertsBefore; }, true,
                                        std::chrono::seconds(120)));
        alerts.respond(0);
        ASSERT_TRUE(mainQueue.pumpUntil([&] { return outcome.has_value(); }));
        ASSERT_FALSE(outcome->ok());
    }

    CliRun cli(const std::string& args, const std::string& origin) {
        const fs::path err = home.path() / "stderr.txt";
        const std::string command = "XDG_DATA_HOME=" + quoted(folder.dataHome().string()) +
                                    " XDG_CONFIG_HOME=" + quoted((home.path() / "config").string()) +
                                    " TMPDIR=" + quoted((home.path() / "tmp").string()) +
                                    " VOCLE_BACKEND_URL=" + quoted(origin) + " " + quoted(kCli.string()) +
                                    " " + args + " 2>" + quoted(err.string());
        CliRun r;
        FILE* pipe = popen(command.c_str(), "r");
        if (!pipe) return r;
        char buffer[4096];
        size_t n;
        while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) r.out.append(buffer, n);
        const int status = pclose(pipe);
        r.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        r.err = readText(err);
        return r;
    }

    std::string liveOrigin() const { return "http://127.0.0.1:" + std::to_string(server.port); }
    fs::path pendingDir() const { return folder.dataHome() / "Vocle" / "pending"; }
};

}  // namespace

TEST_F(KeptDictationTest, ADeadBackendKeepsTheDictationAndTheCommandLineSendsItOnceTheServerAnswers) {
    signIn("ada@example.com");
    connect(kDeadBackend);
    const double firstAt = mainQueue.now();
    dictate();
    mainQueue.virtualQueue.advance(60.0);
    dictate();
    ASSERT_EQ(alerts.shown.size(), 2u);
    EXPECT_EQ(alerts.shown[0].title, "No internet connection");
    EXPECT_EQ(alerts.shown[0].buttons, (std::vector<std::string>{"OK", "Retry"}));

    // Listed, newest first, with the error the user saw and the audio that was sent.
    const CliRun listed = cli("pending", kDeadBackend);
    ASSERT_EQ(listed.exitCode, 0) << listed.err;
    const Json list = Json::parse(listed.out);
    ASSERT_EQ(list.size(), 2u) << listed.out;
    for (const auto& e : list) {
        EXPECT_EQ(e["error"], BackendError::network("x").errorDescription());
        const fs::path audio = e["audioFile"].get<std::string>();
        EXPECT_EQ(audio.parent_path(), pendingDir());
        EXPECT_EQ(audio.extension(), ".m4a");
        ASSERT_TRUE(fs::exists(audio));
        EXPECT_EQ(e["size"].get<uint64_t>(), fs::file_size(audio));
        EXPECT_EQ(e["attempts"], 1);
    }
    const std::string newest = list[0]["id"];
    const std::string oldest = list[1]["id"];

    // The newer one is dropped by a shortened id; dropping it twice is an error.
    const CliRun dropped = cli("drop " + newest.substr(0, 8), kDeadBackend);
    EXPECT_EQ(dropped.exitCode, 0) << dropped.err;
    EXPECT_FALSE(fs::exists(pendingDir() / (newest + ".m4a")));
    EXPECT_FALSE(fs::exists(pendingDir() / (newest + ".json")));
    const CliRun again = cli("drop " + newest, kDeadBackend);
    EXPECT_NE(again.exitCode, 0);
    EXPECT_NE(again.err.find("no failed dictation"), std::string::npos) << again.err;

    // Still down: the retry fails, the dictation stays and counts the attempt.
    const CliRun down = cli("retry --all", kDeadBackend);
    EXPECT_EQ(down.exitCode, 1);
    EXPECT_NE(down.err.find(oldest), std::string::npos) << down.err;
    EXPECT_EQ(Json::parse(cli("pending", kDeadBackend).out)[0]["attempts"], 2);

    // The server answers: the transcript is printed, filed at the recording's time, and the files go.
    const CliRun sent = cli("retry --all", liveOrigin());
    ASSERT_EQ(sent.exitCode, 0) << sent.err;
    EXPECT_NE(sent.out.find("youth"), std::string::npos)
        << "the replacements sent the first time: " << sent.out;
    HistoryService reloaded(folder, mainQueue.clock());
    ASSERT_EQ(reloaded.transcriptions.get().size(), 1u);
    EXPECT_EQ(reloaded.transcriptions.get()[0].text + "\n", sent.out);
    EXPECT_NEAR(reloaded.transcriptions.get()[0].timestamp, firstAt, 1e-3);
    EXPECT_TRUE(fs::is_empty(pendingDir()));
    EXPECT_EQ(cli("pending", liveOrigin()).out, "[]\n");
}
