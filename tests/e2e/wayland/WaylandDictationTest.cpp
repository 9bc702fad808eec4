// The whole dictation on a headless sway: the real vocle (its windows on XWayland), started and stopped
// with vocle-cli as a compositor binding would, speech played into the virtual microphone, the transcript
// typed by the virtual keyboard into native Wayland windows.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <functional>
#include <iterator>
#include <set>
#include <sstream>

#include "foundation/Json.h"
#include "foundation/Uuid.h"
#include "support/desktop/DesktopHarness.h"
#include "support/desktop/WordsHeard.h"

using namespace vocle::testing;
namespace fs = std::filesystem;

namespace {

const fs::path kClip =
    "/usr/share/pocketsphinx/test/data/librivox/sense_and_sensibility_01_austen_64kb-0880.wav";
const std::string kClipWords = "he was not an ill disposed young man";

std::string fileText(const fs::path& path) {
    return fs::exists(path) ? readText(path) : "";
}

// The app id of the window sway has focused, from its tree.
std::optional<std::string> focusedAppId(const vocle::Json& node) {
    if (node.value("focused", false) && node.contains("app_id") && node["app_id"].is_string())
        return node["app_id"].get<std::string>();
    for (const char* children : {"nodes", "floating_nodes"})
        if (node.contains(children))
            for (const auto& child : node[children])
                if (auto found = focusedAppId(child)) return found;
    return std::nullopt;
}

class WaylandDictation : public ::testing::Test {
  protected:
    void SetUp() override {
        desktop = std::make_unique<DesktopHarness>(DesktopSession::Server::wayland);
        desktop->signIn("wayland@example.com");
    }

    std::optional<std::string> focused() const {
        const auto tree = desktop->swaymsg({"-t", "get_tree"});
        if (!tree) return std::nullopt;
        return focusedAppId(vocle::Json::parse(*tree));
    }
    // A foot window whose shell copies its input, unbuffered, into the returned file.
    fs::path openFoot(const std::string& appId) {
        const fs::path out = desktop->root() / (appId + ".txt");
        desktop->startProgram(
            {"foot", "--app-id", appId, "sh", "-c", "stty -icanon -echo; exec cat > " + out.string()});
        EXPECT_TRUE(waitFor([&] { return focused() == appId; }, 15s)) << "foot never got the focus";
        return out;
    }
    // Starts and stops a dictation with vocle-cli around the clip; `screenshot` is taken while recording.
    void dictate(const std::string& screenshot = {}) {
        size_t from = desktop->logSize();
        ASSERT_EQ(desktop->cli({"toggle"}).status, 0);
        ASSERT_TRUE(desktop->waitForLog("audioOutput.isRecording after", 15s, from)) << desktop->vocleLog();
        if (!screenshot.empty()) desktop->screenshot(fs::path(VOCLE_BINARY_DIR) / "screenshots" / screenshot);
        desktop->play(kClip);
        from = desktop->logSize();
        ASSERT_EQ(desktop->cli({"toggle"}).status, 0);
        ASSERT_TRUE(desktop->waitForLog("paste simulation completed", 90s, from))
            << desktop->vocleLog().substr(from);
    }

    std::unique_ptr<DesktopHarness> desktop;
};

TEST_F(WaylandDictation, ToggledFromTheCliTheTranscriptLandsInFootAndInTheHistory) {
    desktop->startVocle();
    EXPECT_NE(
        desktop->vocleLog().find("Desktop session: wayland (compositor sway; protocols: virtual keyboard, "
                                 "data control, foreign toplevel"),
        std::string::npos)
        << desktop->vocleLog();
    const fs::path out = openFoot("foot");
    dictate("wayland-recording.png");
    ASSERT_TRUE(waitFor([&] { return !fileText(out).empty(); }, 10s)) << desktop->vocleLog();
    const std::string typed = fileText(out);
    EXPECT_GE(wordsHeard(typed, kClipWords), 3u) << typed;
    EXPECT_EQ(typed.find('\n'), std::string::npos) << "one paste, nothing more: " << typed;
    EXPECT_NE(desktop->vocleLog().find("Paste path: virtual keyboard"), std::string::npos);
    // The indicator came and went without taking the focus.
    EXPECT_EQ(focused(), "foot");
    ASSERT_TRUE(waitFor([&] { return desktop->history().find(typed) != std::string::npos; }, 10s))
        << desktop->history();
}

TEST_F(WaylandDictation, TheTranscriptLandsInANativeQtWindow) {
    desktop->startVocle();
    const fs::path out = desktop->root() / "qt-target.txt";
    desktop->startProgram({DesktopHarness::binary("tests/vocle-test-text-target").string(), out.string(),
                           "org.vocle.TestTarget"},
                          {{"QT_QPA_PLATFORM", "wayland"}});
    ASSERT_TRUE(waitFor([&] { return focused() == "org.vocle.TestTarget"; }, 15s));
    dictate();
    ASSERT_TRUE(waitFor([&] { return !fileText(out).empty(); }, 10s)) << desktop->vocleLog();
    EXPECT_GE(wordsHeard(fileText(out), kClipWords), 3u) << fileText(out);
}

TEST_F(WaylandDictation, FocusingAFootWindowWithABoundAppIdSwitchesTheMode) {
    desktop->startVocle();
    desktop->stopVocle();
    fs::create_directories(desktop->root() / "data" / "applications");
    writeText(desktop->root() / "data" / "applications" / "org.vocle.Notes.desktop",
              "[Desktop Entry]\nType=Application\nName=Notes\nExec=true\n");
    const fs::path modesFile = desktop->dataFolder() / "modes.json";
    vocle::Json modes = vocle::Json::parse(readText(modesFile));
    vocle::Json notes = modes.at(0);
    notes["id"] = vocle::Uuid::random().string();
    notes["name"] = "Notes";
    notes["isDefault"] = false;
    notes["activationApplication"] = "org.vocle.Notes";
    modes.push_back(notes);
    writeText(modesFile, modes.dump());
    desktop->startVocle();
    const size_t from = desktop->logSize();
    openFoot("org.vocle.Notes");
    EXPECT_TRUE(desktop->waitForLog("Switching to mode 'Notes' for application org.vocle.Notes", 15s, from))
        << desktop->vocleLog().substr(from);
}

}  // namespace
