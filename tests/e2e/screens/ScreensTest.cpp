#include <gtest/gtest.h>

#include <httplib.h>

#include <QImage>

#include <algorithm>
#include <cctype>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <thread>

#include "ScreenReader.h"
#include "foundation/Base64.h"
#include "foundation/Json.h"
#include "support/desktop/DesktopHarness.h"
#include "support/desktop/WordsHeard.h"

using namespace vocle::testing;
namespace fs = std::filesystem;

namespace {

const fs::path kClip = "/usr/share/pocketsphinx/test/data/librivox/sense_and_sensibility_01_austen_64kb-0880.wav";
const std::string kClipWords = "he was not an ill disposed young man";

// What the app logs when a toggle shortcut reaches it: the grabbed hot key, the key monitors, the start.
const char* const kToggleLines[] = {"Carbon HotKey toggle detected!", "Global NSEvent shortcut detected!",
                                    "USER SHORTCUT TRIGGERED", "audioOutput.isRecording after"};

size_t occurrences(const std::string& text, const std::string& part, size_t from = 0) {
    size_t n = 0;
    for (size_t at = text.find(part, from); at != std::string::npos; at = text.find(part, at + part.size())) ++n;
    return n;
}

// A user driving the running application: finds widgets the way a screen reader does and clicks and types
// with XTest.
class Screens : public ::testing::Test {
  protected:
    void SetUp() override {
        desktop = std::make_unique<DesktopHarness>();
        desktop->enableAccessibility();
        desktop->signIn("screens@example.com");
        reader = std::make_unique<ScreenReader>("Vocle", desktop->environment());
    }

    void TearDown() override {
        reader.reset();
        desktop.reset();
    }

    SeenWidget see(const std::string& name, const std::string& role = "",
                   std::chrono::milliseconds deadline = std::chrono::seconds(10)) {
        auto found = reader->waitFor(name, role, deadline);
        if (!found)
            throw std::runtime_error("no " + (role.empty() ? "widget" : role) + " \"" + name + "\" on screen:\n" +
                                     reader->dump());
        return *found;
    }

    void clickOn(const std::string& name, const std::string& role = "") {
        SeenWidget w = see(name, role);
        // Below the fold of a scrolling screen: turn the wheel over its scroll bar (over the page, the wheel
        // could land on a combo box and change it).
        const auto window = reader->find("Vocle", "frame");
        for (int turn = 0; window && w.centerY() >= window->y + window->height && turn < 10; ++turn) {
            const auto bar = reader->find("", "scroll bar");
            if (!bar) break;
            desktop->scroll(bar->centerX(), bar->centerY(), 5);
            w = see(name, role);
        }
        desktop->click(w.centerX(), w.centerY());
    }

    // Picks a screen in the sidebar and waits for its title.
    void openScreen(const std::string& entry, const std::string& title = "") {
        clickOn(entry, "check box");
        see(title.empty() ? entry : title, "label");
    }

    vocle::Json settingsFile() const {
        return vocle::Json::parse(readText(desktop->dataFolder() / "settings.json"));
    }

    // The settings document the server keeps for this user, read with the app's own session.
    vocle::Json backedUpSettings() const {
        const vocle::Json session = vocle::Json::parse(readText(desktop->dataFolder() / "session.json"));
        httplib::Client client(desktop->backendURL());
        client.set_read_timeout(5, 0);
        const auto response = client.Get(
            "/settings", {{"Authorization", "Bearer " + session.at("access_token").get<std::string>()}});
        if (!response || response->status != 200) return vocle::Json::object();
        const vocle::Json body = vocle::Json::parse(response->body);
        return body.contains("settings") ? body.at("settings") : vocle::Json::object();
    }

    // One dictation of the clip into the other application's window with the default toggle; returns
    // the transcript once the history holds it.
    std::string dictateOnce() {
        desktop->openTextTarget();
        const size_t start = desktop->logSize();
        desktop->pressKeys("ctrl+alt+space");
        if (!desktop->waitForLog("audioOutput.isRecording after", 15s, start))
            throw std::runtime_error("no recording started:\n" + desktop->vocleLog().substr(start));
        desktop->play(kClip);
        desktop->pressKeys("ctrl+alt+space");
        if (!waitFor([&] { return desktop->history().find("\"text\"") != std::string::npos; }, 90s, 100ms))
            throw std::runtime_error("nothing reached the history:\n" + desktop->vocleLog().substr(start));
        return vocle::Json::parse(desktop->history()).at(0).at("text").get<std::string>();
    }

    fs::path shoot(const std::string& name) {
        const fs::path file = fs::path(VOCLE_BINARY_DIR) / "screenshots" / (name + ".png");
        fs::remove(file);
        desktop->screenshot(file);
        return file;
    }

    std::unique_ptr<DesktopHarness> desktop;
    std::unique_ptr<ScreenReader> reader;
};

// Pixels of the confirmation green in a part of a screenshot.
int greenPixels(const fs::path& screenshot, int left, int top, int width, int height) {
    const QImage image(QString::fromStdString(screenshot.string()));
    int n = 0;
    for (int y = std::max(0, top); y < std::min(image.height(), top + height); ++y)
        for (int x = std::max(0, left); x < std::min(image.width(), left + width); ++x) {
            const QColor c = image.pixelColor(x, y);
            n += c.green() > c.red() + 60 && c.green() > c.blue() + 60;
        }
    return n;
}

TEST_F(Screens, ANewToggleShortcutRecordedInThePickerStartsAndStopsDictationInAnotherApplication) {
    desktop->startVocle();
    openScreen("Settings");
    clickOn("Toggle Recording On/Off", "push button");
    see("Change Shortcut", "dialog");
    see("Press a shortcut… (Esc to cancel)", "label");

    // Control+Shift+D: no window manager binding, no text-editing meaning.
    desktop->pressKeys("ctrl+shift+d");
    see("Ctrl Shift D", "label");
    const size_t saved = desktop->logSize();
    desktop->pressKeys("Return");
    ASSERT_TRUE(desktop->waitForLog("Registering shortcuts: keyCode=2", 10s, saved)) << desktop->vocleLog().substr(saved);
    ASSERT_TRUE(waitFor([&] { return !reader->find("Change Shortcut", "dialog"); }, 5s)) << reader->dump();

    const vocle::Json settings = settingsFile();
    ASSERT_TRUE(settings.contains("toggleShortcut")) << settings.dump();
    const auto stored = vocle::base64::decode(settings.at("toggleShortcut").get<std::string>());
    ASSERT_TRUE(stored.has_value());
    const vocle::Json shortcut = vocle::Json::parse(*stored);
    EXPECT_EQ(shortcut.at("keyCode").get<int>(), 2);
    EXPECT_EQ(shortcut.at("modifiersRaw").get<uint64_t>(), 0x20000u | 0x40000u);

    desktop->openTextTarget();
    // The old combination is free again: it starts nothing.
    const size_t old = desktop->logSize();
    desktop->pressKeys("ctrl+alt+space");
    std::this_thread::sleep_for(2s);
    for (const char* toggled : kToggleLines)
        EXPECT_EQ(desktop->vocleLog().find(toggled, old), std::string::npos) << desktop->vocleLog().substr(old);
    desktop->focusTextTarget();

    const size_t start = desktop->logSize();
    desktop->pressKeys("ctrl+shift+d");
    ASSERT_TRUE(desktop->waitForLog("audioOutput.isRecording after", 15s, start)) << desktop->vocleLog().substr(start);
    // The same lines the old combination must not produce.
    EXPECT_NE(desktop->vocleLog().find(kToggleLines[0], start), std::string::npos) << desktop->vocleLog().substr(start);
    see("Vocle Recording Indicator");
    desktop->play(kClip);
    desktop->pressKeys("ctrl+shift+d");
    ASSERT_TRUE(waitFor([&] { return wordsHeard(desktop->targetText(), kClipWords) >= 3; }, 90s, 50ms))
        << desktop->targetText() << "\n" << desktop->vocleLog().substr(start);
    // Pasted without taking the focus, and the indicator goes once the text is in.
    EXPECT_EQ(desktop->activeWindowName(), "Vocle test target");
    EXPECT_TRUE(waitFor([&] { return !reader->find("Vocle Recording Indicator"); }, 10s)) << reader->dump();
}

TEST_F(Screens, AReplacementAddedInTheDrawerIsSavedAndBackedUp) {
    desktop->startVocle();
    openScreen("Replacements");
    clickOn("Add Replacement", "push button");
    see("Add Replacement", "label");
    clickOn("Original Text", "text");
    desktop->typeText("vocle dot org");
    clickOn("Replacement Text", "text");
    desktop->typeText("vocle.org");
    clickOn("Save", "push button");

    // The drawer closes and the table shows the new pair.
    see("vocle dot org");
    EXPECT_TRUE(waitFor([&] { return !reader->find("Original Text", "text"); }, 5s)) << reader->dump();

    const vocle::Json pair{{"from", "vocle dot org"}, {"to", "vocle.org"}};
    auto holds = [&](const vocle::Json& list) {
        return list.is_array() && std::find(list.begin(), list.end(), pair) != list.end();
    };
    ASSERT_TRUE(waitFor([&] { return holds(settingsFile().value("textReplacements", vocle::Json())); }, 10s))
        << settingsFile().dump();
    ASSERT_TRUE(waitFor([&] { return holds(backedUpSettings().value("text_replacements", vocle::Json())); }, 15s, 200ms))
        << backedUpSettings().dump();
    const vocle::Json onboarding = vocle::Json::parse(readText(desktop->dataFolder() / "onboarding.json"));
    EXPECT_TRUE(onboarding.at("hasAddedOrEditedReplacement").get<bool>());
}

TEST_F(Screens, TypedVocabularyIsAutoSavedOnceAndBackedUp) {
    desktop->startVocle();
    openScreen("Vocabulary");
    clickOn("Vocabulary", "text");
    const size_t from = desktop->logSize();
    desktop->typeText("Vocle, PulseAudio, Xvfb");

    ASSERT_TRUE(desktop->waitForLog("Vocabulary auto-saved at ", 10s, from)) << desktop->vocleLog().substr(from);
    ASSERT_TRUE(waitFor([&] { return settingsFile().value("vocabularyWords", "") == "Vocle, PulseAudio, Xvfb"; }, 10s))
        << settingsFile().dump();
    ASSERT_TRUE(waitFor([&] { return backedUpSettings().value("vocab_words", "") == "Vocle, PulseAudio, Xvfb"; }, 15s,
                        200ms))
        << backedUpSettings().dump();
    // Typed in one go: one save, not one per key.
    EXPECT_EQ(occurrences(desktop->vocleLog(), "Vocabulary auto-saved at ", from), 1u)
        << desktop->vocleLog().substr(from);
}

TEST_F(Screens, TodaysDictationIsInTheHistoryAndItsCopyButtonPutsItOnTheClipboardForAWhile) {
    desktop->startVocle();
    const std::string transcript = dictateOnce();
    ASSERT_FALSE(transcript.empty());

    clickOn("History", "check box");
    see("Today", "list item");
    const SeenWidget row = see(transcript, "list item");
    // The copy button sits in the row's top right corner.
    const int copyLeft = row.x + row.width - 42, copyTop = row.y + 2;
    const int greenBefore = greenPixels(shoot("history-entry"), copyLeft, copyTop, 40, 36);
    EXPECT_LT(greenBefore, 3);

    desktop->setClipboard("copied earlier");
    const auto clicked = std::chrono::steady_clock::now();
    desktop->click(row.x + row.width - 22, row.y + 21);
    ASSERT_TRUE(waitFor([&] { return desktop->clipboard() == transcript; }, 5s, 100ms)) << desktop->clipboard();
    // The button turns into a green check mark, and back after about three seconds.
    int n = 0;
    ASSERT_TRUE(waitFor([&] { return greenPixels(shoot("history-copied"), copyLeft, copyTop, 40, 36) > 8; }, 3s, 0ms))
        << row.x << "," << row.y << " " << row.width << "x" << row.height << "\n" << reader->dump();
    ASSERT_TRUE(waitFor([&] { return greenPixels(shoot("history-copy-reverted-" + std::to_string(n++ % 2)), copyLeft,
                                                 copyTop, 40, 36) < 3; },
                        8s, 100ms));
    const auto shown = std::chrono::steady_clock::now() - clicked;
    EXPECT_GT(shown, 2s);
    EXPECT_LT(shown, 6s);
    // Copied as a whole and left there.
    EXPECT_EQ(desktop->clipboard(), transcript);
}

TEST_F(Screens, ASupportMessageSentFromHelpReachesTheServerAndAFailedSendKeepsWhatWasTyped) {
    desktop->startVocle();
    openScreen("Help");
    see("Send message", "push button");
    clickOn("Message", "text");
    desktop->typeText("The picker opens behind the panel.");
    clickOn("Send message", "push button");
    see("Sent", "push button");
    ASSERT_TRUE(waitFor([&] { return !desktop->supportMessages().empty(); }, 10s, 100ms));
    EXPECT_EQ(desktop->supportMessages(), std::vector<std::string>{"The picker opens behind the panel."});
    shoot("help-sent");

    desktop->stopServer();
    // Writing on after a send starts a new message.
    clickOn("Message", "text");
    desktop->pressKeys("ctrl+End");
    desktop->typeText(" Also with F9.");
    clickOn("Send message", "push button");
    see("Sending...", "push button", 5s);
    shoot("help-sending");
    see("No internet connection. Check your network and try again.", "label", 30s);
    see("Send message", "push button");
    EXPECT_EQ(see("Message", "text").text, "The picker opens behind the panel. Also with F9.");
    shoot("help-error");
}

TEST_F(Screens, ACancelKeyChosenInItsPickerCancelsARecordingInAnotherApplicationAndEscapeNoLongerDoes) {
    desktop->startVocle();
    openScreen("Settings");
    clickOn("Cancel Recording", "push button");
    see("Change Cancel Recording Shortcut", "dialog");
    shoot("cancel-picker");
    desktop->pressKeys("F9");
    shoot("cancel-picker-f9");
    desktop->pressKeys("Return");
    ASSERT_TRUE(waitFor([&] { return !reader->find("Change Cancel Recording Shortcut", "dialog"); }, 5s))
        << reader->dump();
    ASSERT_TRUE(waitFor([&] { return settingsFile().contains("cancelShortcut"); }, 5s)) << settingsFile().dump();
    const auto stored = vocle::base64::decode(settingsFile().at("cancelShortcut").get<std::string>());
    ASSERT_TRUE(stored.has_value());
    EXPECT_EQ(vocle::Json::parse(*stored).at("keyCode").get<int>(), 101);
    shoot("settings-cancel-f9");

    desktop->openTextTarget();
    const size_t start = desktop->logSize();
    desktop->pressKeys("ctrl+alt+space");
    ASSERT_TRUE(desktop->waitForLog("audioOutput.isRecording after", 15s, start)) << desktop->vocleLog().substr(start);
    see("Vocle Recording Indicator");
    desktop->play(kClip);
    desktop->pressKeys("Escape");
    std::this_thread::sleep_for(1500ms);
    EXPECT_EQ(desktop->vocleLog().find("cancelRecording called", start), std::string::npos)
        << desktop->vocleLog().substr(start);
    ASSERT_TRUE(reader->find("Vocle Recording Indicator")) << reader->dump();

    desktop->pressKeys("F9");
    ASSERT_TRUE(desktop->waitForLog("AppState - cancelRecording called", 10s, start)) << desktop->vocleLog().substr(start);
    EXPECT_TRUE(waitFor([&] { return !reader->find("Vocle Recording Indicator"); }, 10s)) << reader->dump();
    // Long enough for a transcript of the clip to have come back, had it been sent.
    std::this_thread::sleep_for(5s);
    EXPECT_EQ(desktop->targetText(), "");
    EXPECT_EQ(desktop->history().find("\"text\""), std::string::npos) << desktop->history();
    EXPECT_EQ(desktop->activeWindowName(), "Vocle test target");
}

TEST_F(Screens, ModesBoundToApplicationsInTheChooserAreSavedAndSwitchedToWhenThoseApplicationsComeToTheFront) {
    // Two installed applications the chooser can offer; their windows carry these classes.
    for (const std::string app : {"vocle-notes", "vocle-chat"}) {
        const fs::path file = desktop->root() / "data" / "applications" / (app + ".desktop");
        fs::create_directories(file.parent_path());
        std::ofstream(file) << "[Desktop Entry]\nType=Application\nName=" << (app == "vocle-notes" ? "Vocle Notes" : "Vocle Chat")
                            << "\nExec=true\nStartupWMClass=" << app << "\n";
    }
    desktop->startVocle();
    auto bindApplication = [&](const std::string& name) {
        clickOn("Add Application...", "push button");
        see("Select Application", "dialog");
        desktop->typeText("Vocle");
        clickOn(name, "list item");
        shoot("application-chooser");
        clickOn("Select", "push button");
        ASSERT_TRUE(waitFor([&] { return !reader->find("Select Application", "dialog"); }, 5s)) << reader->dump();
        see(name, "label");
    };

    openScreen("Modes");
    clickOn("Default");
    see("Edit Mode", "label");
    bindApplication("Vocle Chat");
    clickOn("Save", "push button");
    see("Create Mode", "push button");

    clickOn("Create Mode", "push button");
    see("New Mode", "label");
    clickOn("Mode Name", "text");
    desktop->pressKeys("ctrl+a");
    desktop->typeText("Notes mode");
    bindApplication("Vocle Notes");
    shoot("mode-editor-application");
    const size_t saved = desktop->logSize();
    clickOn("Save", "push button");
    see("Notes mode");
    ASSERT_TRUE(desktop->waitForLog("ModeManager: Set newly created mode 'Notes mode' as active", 10s, saved))
        << desktop->vocleLog().substr(saved);

    // Both bindings are in the modes file.
    std::smatch where;
    const std::string log = desktop->vocleLog();
    ASSERT_TRUE(std::regex_search(log, where, std::regex("Local modes saved -> (.*) \\(2 modes\\)"))) << log;
    const fs::path modesFile = where[1].str();
    std::map<std::string, std::string> bound;
    ASSERT_TRUE(waitFor([&] {
        bound.clear();
        for (const auto& mode : vocle::Json::parse(readText(modesFile)))
            bound[mode.at("name").get<std::string>()] = mode.at("activationApplication").get<std::string>();
        return bound.size() == 2 && !bound["Notes mode"].empty();
    }, 5s)) << readText(modesFile);
    EXPECT_EQ(bound["Default"], "vocle-chat");
    EXPECT_EQ(bound["Notes mode"], "vocle-notes");

    const size_t chat = desktop->logSize();
    desktop->openTextTarget("vocle-chat");
    ASSERT_TRUE(desktop->waitForLog("AutoModeManager: Switching to mode 'Default' for application vocle-chat", 10s, chat))
        << desktop->vocleLog().substr(chat);
    const size_t notes = desktop->logSize();
    desktop->openTextTarget("vocle-notes");
    ASSERT_TRUE(
        desktop->waitForLog("AutoModeManager: Switching to mode 'Notes mode' for application vocle-notes", 10s, notes))
        << desktop->vocleLog().substr(notes);
    EXPECT_NE(desktop->vocleLog().find("ModeManager: setActiveMode() called for mode 'Notes mode'", notes),
              std::string::npos)
        << desktop->vocleLog().substr(notes);
}

// Every screen of the running app as the user sees it, first as a new user finds it and then filled in
// through the screens themselves; each picture is kept under the build tree's screenshots folder.
TEST_F(Screens, EveryScreenShowsItsContentFreshAndFilledIn) {
    const fs::path folder = fs::path(VOCLE_BINARY_DIR) / "screenshots";
    auto shoot = [&](const std::string& name) {
        const fs::path file = folder / (name + ".png");
        fs::remove(file);
        desktop->screenshot(file);
        // A real capture of a 1440x900 desktop, not an empty file.
        EXPECT_GT(fs::file_size(file), 20000u) << file;
    };
    auto walk = [&](const std::string& state, bool filled) {
        openScreen("Home", "Getting Started");
        see(filled ? "6 of 6 complete" : "2 of 6 complete", "label");
        shoot("home-" + state);

        openScreen("Modes");
        see("Create Mode", "push button");
        shoot("modes-" + state);
        if (filled) {
            clickOn("Meeting notes");
            see("Edit Mode", "label");
        } else {
            clickOn("Create Mode", "push button");
            see("New Mode", "label");
        }
        shoot("mode-editor-" + state);
        clickOn("Cancel", "push button");
        see("Create Mode", "push button");

        openScreen("Replacements");
        if (filled) see("vocle dot org");
        shoot("replacements-" + state);
        clickOn("Add Replacement", "push button");
        see("Original Text", "text");
        shoot("replacements-drawer-" + state);
        clickOn("Close", "push button");
        EXPECT_TRUE(waitFor([&] { return !reader->find("Original Text", "text"); }, 5s)) << reader->dump();

        openScreen("Vocabulary");
        shoot("vocabulary-" + state);

        openScreen("Settings");
        see("Toggle Recording On/Off", "push button");
        shoot("settings-" + state);
        clickOn("Toggle Recording On/Off", "push button");
        see("Change Shortcut", "dialog");
        shoot("shortcut-picker-" + state);
        desktop->pressKeys("Escape");
        EXPECT_TRUE(waitFor([&] { return !reader->find("Change Shortcut", "dialog"); }, 5s)) << reader->dump();

        openScreen("History");
        if (filled) see("Today", "list item");
        else see("No history yet", "label");
        shoot("history-" + state);

        openScreen("Help");
        see("Send message", "push button");
        shoot("help-" + state);

        clickOn("Dictation", "menu item");
        clickOn("Show Permissions", "menu item");
        see("Required Permissions", "label");
        shoot("permissions-" + state);
        clickOn("Close", "push button");
        EXPECT_TRUE(waitFor([&] { return !reader->find("Required Permissions", "label"); }, 5s)) << reader->dump();
    };

    desktop->startVocle();
    walk("fresh", false);

    // Filled in the way a user would: a mode, a replacement, vocabulary, and one dictation.
    openScreen("Modes");
    clickOn("Create Mode", "push button");
    clickOn("Mode Name", "text");
    desktop->pressKeys("ctrl+a");
    desktop->typeText("Meeting notes");
    clickOn("Save", "push button");
    see("Meeting notes");

    openScreen("Replacements");
    clickOn("Add Replacement", "push button");
    clickOn("Original Text", "text");
    desktop->typeText("vocle dot org");
    clickOn("Replacement Text", "text");
    desktop->typeText("vocle.org");
    clickOn("Save", "push button");
    see("vocle dot org");

    openScreen("Vocabulary");
    clickOn("Vocabulary", "text");
    const size_t typed = desktop->logSize();
    desktop->typeText("Vocle, PulseAudio, Xvfb, openbox");
    ASSERT_TRUE(desktop->waitForLog("Vocabulary auto-saved at ", 10s, typed));

    desktop->openTextTarget();
    const size_t start = desktop->logSize();
    desktop->pressKeys("ctrl+alt+space");
    ASSERT_TRUE(desktop->waitForLog("audioOutput.isRecording after", 15s, start)) << desktop->vocleLog().substr(start);
    desktop->play(kClip);
    desktop->pressKeys("ctrl+alt+space");
    ASSERT_TRUE(waitFor([&] { return desktop->history().find("\"text\"") != std::string::npos; }, 90s, 100ms))
        << desktop->vocleLog().substr(start);
    // Back to the main window, by clicking into it.
    clickOn("Home", "check box");
    walk("filled", true);
}

}  // namespace

// Where a kept recording's Retry button is, from the right edge of its row.
constexpr int kRetryFromRight = 120;

TEST_F(Screens, ADictationTheBackendCouldNotTakeIsKeptAndRetriedFromTheHistoryOntoTheClipboard) {
    desktop->startVocle();
    desktop->stopServer();
    desktop->openTextTarget();
    const size_t start = desktop->logSize();
    desktop->pressKeys("ctrl+alt+space");
    ASSERT_TRUE(desktop->waitForLog("audioOutput.isRecording after", 15s, start))
        << desktop->vocleLog().substr(start);
    desktop->play(kClip);
    desktop->pressKeys("ctrl+alt+space");

    // The alert of a dead backend keeps its dismiss button and offers another try.
    see("Check your network and try again.", "", 60s);
    see("Retry", "push button");
    shoot("kept-alert");
    clickOn("OK", "push button");
    const fs::path pending = desktop->dataFolder() / "pending";
    auto keptFiles = [&] {
        std::vector<std::string> names;
        if (fs::exists(pending))
            for (const auto& f : fs::directory_iterator(pending))
                names.push_back(f.path().extension().string());
        std::sort(names.begin(), names.end());
        return names;
    };
    ASSERT_TRUE(waitFor([&] { return keptFiles() == std::vector<std::string>{".json", ".m4a"}; }, 5s, 100ms));
    EXPECT_EQ(desktop->history().find("\"text\""), std::string::npos);

    desktop->restartServer();
    clickOn("History", "check box");
    const SeenWidget row = see("Not transcribed", "list item");
    shoot("history-kept");
    desktop->setClipboard("copied earlier");
    // The row's buttons sit at its right end, vertically centred on the card: Retry, then Delete.
    desktop->click(row.x + row.width - kRetryFromRight, row.y + (row.height - 12) / 2);

    ASSERT_TRUE(waitFor([&] { return desktop->history().find("\"text\"") != std::string::npos; }, 90s, 200ms))
        << desktop->vocleLog().substr(start);
    const std::string transcript = vocle::Json::parse(desktop->history()).at(0).at("text").get<std::string>();
    EXPECT_GE(wordsHeard(transcript, kClipWords), 4u) << transcript;
    ASSERT_TRUE(waitFor([&] { return desktop->clipboard() == transcript; }, 5s, 100ms))
        << desktop->clipboard();
    EXPECT_TRUE(keptFiles().empty());
    // Nothing is pasted: the user has moved on since the recording.
    EXPECT_EQ(desktop->targetText(), "");
    ASSERT_TRUE(reader->waitFor(transcript, "list item")) << reader->dump();
    EXPECT_FALSE(reader->find("Not transcribed", "list item"));
    shoot("history-retried");
}
