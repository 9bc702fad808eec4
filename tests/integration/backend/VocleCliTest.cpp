#include <gtest/gtest.h>
#include <sndfile.h>
#include <sys/wait.h>

#include <cstdio>
#include <random>

#include "BackendTestSupport.h"
#include "desktop/Shortcut.h"
#include "foundation/Base64.h"
#include "foundation/Clock.h"
#include "storage/DataFolder.h"
#include "storage/FileStorageManager.h"
#include "storage/LocalSettingsStore.h"
#include "storage/SessionStore.h"
#include "support/TempDir.h"

namespace vocle {
namespace {

namespace fs = std::filesystem;
using testing::RecordedRequest;
using testing::reply;
using testing::ScriptedServer;

const fs::path kCli = fs::path(VOCLE_BINARY_DIR) / "tools" / "vocle-cli" / "vocle-cli";

struct CliRun {
    int exitCode = -1;
    std::string out;
    std::string err;
};

std::string quoted(const std::string& s) {
    std::string q = "'";
    for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

// The real binary in its own process, with its own environment and the scripted server as backend.
class VocleCliTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(fs::exists(kCli)) << "build the vocle-cli target first: " << kCli;
        server.start();
        fs::create_directories(dir / "tmp");
        SF_INFO info{};
        info.samplerate = 16000;
        info.channels = 1;
        info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
        SNDFILE* f = sf_open((dir / "rec.wav").c_str(), SFM_WRITE, &info);
        ASSERT_NE(f, nullptr);
        std::mt19937 rng(5);
        std::vector<short> samples(16000);
        for (auto& s : samples) s = static_cast<short>(static_cast<int>(rng() % 8000) - 4000);
        sf_write_short(f, samples.data(), static_cast<sf_count_t>(samples.size()));
        sf_close(f);
    }

    CliRun run(const std::string& args) {
        const std::string command =
            "XDG_DATA_HOME=" + quoted((dir / "data").string()) +
            " XDG_CONFIG_HOME=" + quoted((dir / "config").string()) +
            " TMPDIR=" + quoted((dir / "tmp").string()) + " VOCLE_BACKEND_URL=" + quoted(server.origin()) +
            " " + quoted(kCli.string()) + " " + args + " 2>" + quoted((dir / "stderr.txt").string());
        CliRun r;
        FILE* pipe = popen(command.c_str(), "r");
        if (!pipe) return r;
        char buffer[4096];
        size_t n;
        while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) r.out.append(buffer, n);
        const int status = pclose(pipe);
        r.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        r.err = vocle::testing::readText(dir / "stderr.txt");
        return r;
    }

    Json lastBody() const {
        const auto requests = server.requests();
        return requests.empty() ? Json() : Json::parse(requests.back().body);
    }

    SystemClock clock;
    ScriptedServer server{clock};
    vocle::testing::TempDir dir;
    FileStorageManager files{DataFolder(dir / "data"), clock};
    SessionStore sessions{files};
};

TEST_F(VocleCliTest, TranscribesWithTheStoredSessionModeVocabularyAndReplacements) {
    server.on("POST", "/transcribe", [](const RecordedRequest&, httplib::Response& res) {
        reply(res, 200, R"({"transcript": "Ship it."})");
    });
    sessions.save(SupabaseSession{"acc", "ref", "u", "u@example.org"});
    Mode notes = Mode::fresh("Notes");
    Mode email = Mode::fresh("Email");
    email.language = "German";
    LocalSettingsStore(DataFolder(dir / "data"), clock).saveModes({notes, email});
    AppSettings settings = files.loadSettings();
    settings.lastActiveModeId = email.id.string();
    settings.vocabularyWords = "Vocle, libcurl";
    settings.textReplacements = {StoredTextReplacement{Uuid::random(), "period", "."}};
    files.saveSettings(settings);

    const CliRun r = run("transcribe " + quoted((dir / "rec.wav").string()));
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, "Ship it.\n") << "standard output is the transcript alone";

    const Json body = lastBody();
    EXPECT_EQ(body.at("mode").at("name"), "Email");
    EXPECT_EQ(body.at("mode").at("language"), "de");
    EXPECT_EQ(body.at("vocab_words"), "Vocle, libcurl");
    EXPECT_EQ(body.at("text_replacements"), Json::parse(R"([{"from": "period", "to": "."}])"));
    EXPECT_EQ(base64::decode(body.at("audio").get<std::string>())->substr(4, 4), "ftyp");
    EXPECT_EQ(server.requests().back().header("Authorization"), "Bearer acc;refresh=ref");
}

TEST_F(VocleCliTest, CommandLineModeVocabularyAndReplacementsWin) {
    server.on("POST", "/transcribe", [](const RecordedRequest&, httplib::Response& res) {
        reply(res, 200, R"({"transcript": "ok"})");
    });
    sessions.save(SupabaseSession{"acc", "ref", "u", "u@example.org"});
    Mode custom = Mode::fresh("Commit message");
    custom.type.reset();
    vocle::testing::writeText(dir / "mode.json", custom.toJson().dump());
    vocle::testing::writeText(dir / "r.json", R"([{"from": "new line", "to": "\n"}])");

    const CliRun r = run("transcribe " + quoted((dir / "rec.wav").string()) + " --mode-json " +
                         quoted((dir / "mode.json").string()) + " --vocab 'Kubernetes' --replacements " +
                         quoted((dir / "r.json").string()));
    EXPECT_EQ(r.exitCode, 0) << r.err;
    const Json body = lastBody();
    EXPECT_EQ(body.at("mode").at("id"), custom.id.string());
    EXPECT_EQ(body.at("mode").at("type"), "raw");
    EXPECT_EQ(body.at("vocab_words"), "Kubernetes");
    EXPECT_EQ(body.at("text_replacements"), Json::parse(R"([{"from": "new line", "to": "\n"}])"));
}

TEST_F(VocleCliTest, FailuresPrintTheUserFacingTextAndExitNonZero) {
    server.on("POST", "/transcribe", [](const RecordedRequest&, httplib::Response& res) {
        reply(res, 401, R"({"error": "jwt expired"})");
    });
    CliRun r = run("transcribe " + quoted((dir / "rec.wav").string()));
    EXPECT_NE(r.exitCode, 0);
    EXPECT_NE(r.err.find("not signed in"), std::string::npos) << r.err;
    EXPECT_EQ(server.requestCount(), 0u);

    sessions.save(SupabaseSession{"acc", "ref", "u", "u@example.org"});
    r = run("transcribe " + quoted((dir / "rec.wav").string()));
    EXPECT_NE(r.exitCode, 0);
    EXPECT_EQ(r.out, "");
    EXPECT_NE(r.err.find("Please sign in again: Your session has expired."), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("vocle-cli transcribe: Please sign in again."), std::string::npos) << r.err;
    EXPECT_TRUE(sessions.load()) << "the terminal leaves the stored session alone";

    r = run("transcribe " + quoted((dir / "rec.wav").string()) + " --replacements " +
            quoted((dir / "missing.json").string()));
    EXPECT_NE(r.exitCode, 0);
    EXPECT_NE(r.err.find("missing.json"), std::string::npos) << r.err;

    r = run("convert " + quoted((dir / "nothing.wav").string()) + " " + quoted((dir / "out.m4a").string()));
    EXPECT_NE(r.exitCode, 0);
    EXPECT_NE(r.err.find("vocle-cli convert: Invalid input audio file"), std::string::npos) << r.err;
}

}  // namespace
}  // namespace vocle

namespace vocle {
namespace {

TEST_F(VocleCliTest, SettingsPrintsTheShortcutsDecoded) {
    AppSettings settings = files.loadSettings();
    settings.toggleShortcut = Shortcut{keycode::kA, kModifierControl | kModifierShift}.encode();
    files.saveSettings(settings);

    CliRun r = run("settings");
    ASSERT_EQ(r.exitCode, 0) << r.err;
    Json printed = Json::parse(r.out);
    EXPECT_EQ(
        printed.at("toggleShortcut"),
        Json::parse(R"({"keyCode": 0, "modifiersRaw": 393216, "key": "A", "modifiers": ["Ctrl", "Shift"],
                              "display": "Ctrl+Shift+A"})"));
    EXPECT_EQ(printed.at("cancelShortcut").at("display"), "Esc");
    EXPECT_EQ(printed.at("cancelShortcut").at("default"), true) << "nothing stored: the default applies";

    settings.toggleShortcut = std::string("not json");
    settings.cancelShortcut.reset();
    files.saveSettings(settings);
    r = run("settings");
    ASSERT_EQ(r.exitCode, 0) << r.err;
    printed = Json::parse(r.out);
    EXPECT_EQ(printed.at("toggleShortcut").at("stored"), "not json");
    EXPECT_EQ(printed.at("toggleShortcut").at("display"), "Ctrl+Alt+Space");
    EXPECT_TRUE(printed.at("toggleShortcut").contains("error"));
}

}  // namespace
}  // namespace vocle
