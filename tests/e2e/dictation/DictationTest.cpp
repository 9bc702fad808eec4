#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <functional>
#include <iterator>
#include <set>
#include <sstream>
#include <thread>

#include "foundation/Json.h"
#include "foundation/Uuid.h"
#include "support/TestSoundServer.h"
#include "support/desktop/DesktopHarness.h"
#include "support/desktop/WordsHeard.h"

using namespace vocle::testing;
namespace fs = std::filesystem;

namespace {

const fs::path kLibrivox = "/usr/share/pocketsphinx/test/data/librivox";
const fs::path kClip = kLibrivox / "sense_and_sensibility_01_austen_64kb-0880.wav";
const std::string kClipWords = "he was not an ill disposed young man";
const fs::path kOtherClip = kLibrivox / "sense_and_sensibility_01_austen_64kb-0930.wav";
const std::string kOtherClipWords = "might even have been made amiable himself";

size_t countRecordings(const fs::path& folder) {
    size_t n = 0;
    for (const auto& entry : fs::directory_iterator(folder)) {
        const auto name = entry.path().filename().string();
        if (name.rfind("vocle_", 0) == 0 && entry.path().extension() == ".wav" &&
            name.find("_mic_") == std::string::npos && name.find("_sys_") == std::string::npos)
            ++n;
    }
    return n;
}

// Rewrites the modes file the app made at its first start; `edit` changes the list in place.
void editModes(const fs::path& dataFolder, const std::function<void(vocle::Json&)>& edit) {
    const fs::path file = dataFolder / "modes.json";
    vocle::Json modes = vocle::Json::parse(readText(file));
    edit(modes);
    writeText(file, modes.dump());
}

class Dictation : public ::testing::Test {
  protected:
    void SetUp() override {
        if (auto why = TestSoundServer::fromEnvironment().unavailable()) {
            if (soundServerRequired()) FAIL() << *why;
            GTEST_SKIP() << *why;
        }
        desktop = std::make_unique<DesktopHarness>();
        if (HasFatalFailure()) return;
        desktop->signIn("e2e@example.com");
    }

    // Starts a dictation with the default shortcut and waits until the microphone writes its file.
    void startDictation() {
        const size_t from = desktop->logSize();
        desktop->pressKeys("ctrl+alt+space");
        // Logged once the file output runs, whether the input was ready at once or only after the wait.
        ASSERT_TRUE(desktop->waitForLog("audioOutput.isRecording after", 15s, from)) << desktop->vocleLog();
    }

    std::unique_ptr<DesktopHarness> desktop;
};

TEST_F(Dictation, SpeechLandsInTheFocusedWindowOfAnotherApplicationAndInTheHistory) {
    desktop->startVocle();
    desktop->openTextTarget();
    startDictation();
    desktop->play(kClip);
    const size_t from = desktop->logSize();
    desktop->pressKeys("ctrl+alt+space");

    ASSERT_TRUE(waitFor([&] { return !desktop->targetText().empty(); }, 90s, 50ms)) << desktop->vocleLog();
    ASSERT_TRUE(desktop->waitForLog("paste simulation completed", 10s, from));
    const std::string pasted = desktop->targetText();
    // Recognised from what the microphone heard, not a canned answer.
    EXPECT_GE(wordsHeard(pasted, kClipWords), 3u) << pasted;
    // Exactly one paste, and no modifier of the stop shortcut leaked into the window.
    EXPECT_EQ(pasted.find('\n'), std::string::npos) << pasted;
    EXPECT_EQ(desktop->activeWindowName(), "Vocle test target");
    ASSERT_TRUE(waitFor([&] { return desktop->history().find(pasted) != std::string::npos; }, 10s))
        << desktop->history();
}

TEST_F(Dictation, EscapeCancelsWithoutSendingOrPasting) {
    desktop->startVocle();
    desktop->openTextTarget();
    startDictation();
    desktop->play(kClip);
    const size_t from = desktop->logSize();
    desktop->pressKeys("Escape");

    ASSERT_TRUE(desktop->waitForLog("cancelRecording() called", 10s, from)) << desktop->vocleLog();
    // Give a wrongly continuing pipeline the time a real one needs to paste.
    EXPECT_FALSE(desktop->waitForLog("starting audio processing", 5s, from));
    EXPECT_EQ(desktop->vocleLog().find("bytes to backend", from), std::string::npos);
    EXPECT_EQ(desktop->targetText(), "");
    EXPECT_EQ(desktop->history().find("\"text\""), std::string::npos) << desktop->history();
}

TEST_F(Dictation, ASilentRecordingIsTreatedAsACancel) {
    desktop->startVocle();
    desktop->openTextTarget();
    startDictation();
    // Long enough not to count as a short press; the microphone hears only silence meanwhile.
    std::this_thread::sleep_for(1500ms);
    const size_t from = desktop->logSize();
    desktop->pressKeys("ctrl+alt+space");

    ASSERT_TRUE(desktop->waitForLog("did not exceed threshold", 10s, from)) << desktop->vocleLog();
    EXPECT_FALSE(desktop->waitForLog("bytes to backend", 3s, from));
    EXPECT_EQ(desktop->targetText(), "");
}

TEST_F(Dictation, WithTheBackendDownTheUserIsToldAndTheRecordingIsKept) {
    desktop->startVocle();
    desktop->openTextTarget();
    desktop->stopServer();
    startDictation();
    desktop->play(kClip);
    const size_t from = desktop->logSize();
    desktop->pressKeys("ctrl+alt+space");

    // After its retries the upload gives up and the user gets the alert, which waits for them.
    ASSERT_TRUE(desktop->waitForLog("Transcription request failed: No internet connection", 60s, from))
        << desktop->vocleLog();
    ASSERT_TRUE(waitFor([&] { return desktop->activeWindowName() == "Vocle"; }, 10s, 100ms))
        << "no alert in front; active window: " << desktop->activeWindowName();
    EXPECT_FALSE(desktop->waitForLog("transcription failed", 1s, from)) << "the failure did not wait for the alert";
    desktop->pressKeys("Return");
    ASSERT_TRUE(desktop->waitForLog("transcription failed", 10s, from)) << desktop->vocleLog();

    EXPECT_EQ(desktop->targetText(), "");
    EXPECT_GE(countRecordings(desktop->temporaryFolder()), 1u);
}

TEST_F(Dictation, FocusingAnApplicationActivatesTheModeBoundToItForTheNextDictation) {
    desktop->startVocle();
    desktop->stopVocle();
    // A desktop entry names the target window's application, as an installed program's would.
    fs::create_directories(desktop->root() / "data" / "applications");
    writeText(desktop->root() / "data" / "applications" / "org.vocle.TestTarget.desktop",
              "[Desktop Entry]\nType=Application\nName=Test Target\nExec=true\n"
              "StartupWMClass=vocle-test-text-target\n");
    editModes(desktop->dataFolder(), [](vocle::Json& modes) {
        vocle::Json notes = modes.at(0);
        notes["id"] = vocle::Uuid::random().string();
        notes["name"] = "Notes";
        notes["isDefault"] = false;
        notes["activationApplication"] = "org.vocle.TestTarget";
        modes.push_back(notes);
    });
    desktop->startVocle();
    const size_t from = desktop->logSize();
    desktop->openTextTarget();

    ASSERT_TRUE(desktop->waitForLog("Switching to mode 'Notes' for application org.vocle.TestTarget", 15s, from))
        << desktop->vocleLog().substr(from) << "\nACTIVE: " << desktop->activeWindowName();
    startDictation();
    EXPECT_TRUE(desktop->waitForLog("Using mode: Notes", 5s, from));
    desktop->pressKeys("Escape");
}

TEST_F(Dictation, AModeWithSystemAudioTranscribesWhatTheComputerPlaysAndWhatTheUserSays) {
    desktop->startVocle();
    desktop->stopVocle();
    editModes(desktop->dataFolder(), [](vocle::Json& modes) {
        for (auto& mode : modes) mode["recordSystemAudio"] = true;
    });
    desktop->startVocle();
    desktop->openTextTarget();
    startDictation();
    // First the computer plays a sentence through its speakers, then the user speaks one.
    desktop->play(kOtherClip, /*toSpeakers=*/true);
    desktop->play(kClip);
    const size_t from = desktop->logSize();
    desktop->pressKeys("ctrl+alt+space");

    ASSERT_TRUE(waitFor([&] { return !desktop->targetText().empty(); }, 90s, 50ms)) << desktop->vocleLog().substr(from);
    EXPECT_TRUE(desktop->waitForLog("Mixing mic + system into", 1s, from)) << desktop->vocleLog().substr(from);
    const std::string text = desktop->targetText();
    EXPECT_GE(wordsHeard(text, kOtherClipWords), 2u) << text;
    EXPECT_GE(wordsHeard(text, kClipWords), 2u) << text;
}

}  // namespace
