#include <gtest/gtest.h>

#include <cctype>
#include <future>
#include <iterator>
#include <set>
#include <sstream>

#include "support/desktop/DesktopHarness.h"
#include "support/desktop/WordsHeard.h"

using namespace vocle::testing;
namespace fs = std::filesystem;

namespace {

const fs::path kLibrivox = "/usr/share/pocketsphinx/test/data/librivox";
const fs::path kClip = kLibrivox / "sense_and_sensibility_01_austen_64kb-0880.wav";
const fs::path kSecondClip = kLibrivox / "sense_and_sensibility_01_austen_64kb-0930.wav";

const std::string kClipWords = "he was not an ill disposed young man";

class StreamedDictation : public ::testing::Test {
  protected:
    void SetUp() override {
        desktop = std::make_unique<DesktopHarness>();
        if (HasFatalFailure()) return;
        desktop->signIn("e2e@example.com");
        desktop->startVocle();
        desktop->openTextTarget();
    }

    void startDictation() {
        const size_t from = desktop->logSize();
        desktop->pressKeys("ctrl+alt+space");
        ASSERT_TRUE(desktop->waitForLog("audioOutput.isRecording after", 15s, from)) << desktop->vocleLog();
    }
    // Speech into the microphone on another thread, as a user talks while the test looks at the screen.
    std::future<void> speak(std::vector<fs::path> clips) {
        return std::async(std::launch::async, [this, clips] {
            for (const auto& clip : clips) desktop->play(clip);
        });
    }

    std::unique_ptr<DesktopHarness> desktop;
};

TEST_F(StreamedDictation, TheWordsAreRecognisedWhileSpokenShownBesideTheIndicatorAndPastedAtTheStop) {
    const size_t from = desktop->logSize();
    startDictation();
    ASSERT_TRUE(desktop->waitForLog("Streaming transcription: opening a stream", 5s, from));
    auto speech = speak({kClip, kSecondClip});
    ASSERT_TRUE(desktop->waitForLog("Streaming transcription: first words heard", 20s, from))
        << desktop->vocleLog();
    // The bubble is on screen while the user still talks; the screenshot is for a person to look at.
    std::this_thread::sleep_for(1500ms);
    const fs::path shot = fs::path(VOCLE_BINARY_DIR) / "screenshots" / "live-preview.png";
    fs::remove(shot);
    desktop->screenshot(shot);
    EXPECT_EQ(desktop->activeWindowName(), "Vocle test target") << "the bubble took the focus";
    speech.get();

    const size_t stop = desktop->logSize();
    desktop->pressKeys("ctrl+alt+space");
    ASSERT_TRUE(waitFor([&] { return !desktop->targetText().empty(); }, 30s, 20ms))
        << desktop->vocleLog().substr(stop);
    const std::string log = desktop->vocleLog().substr(stop);
    EXPECT_NE(log.find("streamed transcript received"), std::string::npos) << log;
    EXPECT_EQ(log.find("bytes to backend"), std::string::npos) << "the whole file went too:\n" << log;
    EXPECT_EQ(log.find("Streaming transcription failed"), std::string::npos) << log;
    const std::string text = desktop->targetText();
    EXPECT_GE(wordsHeard(text, kClipWords), 3u) << text;
    EXPECT_EQ(desktop->activeWindowName(), "Vocle test target");
    ASSERT_TRUE(waitFor([&] { return desktop->history().find(text) != std::string::npos; }, 10s));
}

TEST_F(StreamedDictation, WhenTheServerGoesAwayMidDictationTheRecordingStillArrivesByTheWholeFile) {
    const size_t from = desktop->logSize();
    startDictation();
    auto speech = speak({kClip});
    ASSERT_TRUE(desktop->waitForLog("Streaming transcription: first words heard", 20s, from))
        << desktop->vocleLog();
    desktop->stopServer();
    speech.get();
    ASSERT_TRUE(desktop->waitForLog("Streaming transcription failed (", 10s, from))
        << desktop->vocleLog().substr(from);

    const size_t stop = desktop->logSize();
    desktop->pressKeys("ctrl+alt+space");
    ASSERT_TRUE(desktop->waitForLog("bytes to backend", 15s, stop)) << desktop->vocleLog().substr(stop);
    // The server is back while the upload retries.
    desktop->restartServer();
    ASSERT_TRUE(waitFor([&] { return !desktop->targetText().empty(); }, 60s, 50ms))
        << desktop->vocleLog().substr(stop);
    EXPECT_GE(wordsHeard(desktop->targetText(), kClipWords), 3u) << desktop->targetText();
    const std::string log = desktop->vocleLog().substr(from);
    size_t failures = 0;
    for (size_t at = log.find("Streaming transcription failed ("); at != std::string::npos;
         at = log.find("Streaming transcription failed (", at + 1))
        ++failures;
    EXPECT_EQ(failures, 1u) << log;
}

}  // namespace
