#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <memory>

#include "X11Harness.h"
#include "desktop/ClipboardManager.h"
#include "foundation/Log.h"
#include "foundation/NotificationCenter.h"
#include "platform/x11/QtPasteboard.h"
#include "platform/x11/XTestSyntheticKeys.h"
#include "storage/HistoryService.h"

using namespace vocle;
using namespace vocle::testing;
using namespace vocle::x11;

namespace {

double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

class X11PasteTest : public ::testing::Test {
  protected:
    void SetUp() override {
        h = &X11Harness::instance();
        keys = std::make_unique<XTestSyntheticKeys>();
        ASSERT_TRUE(keys->isAvailable());
        history = std::make_unique<HistoryService>(DataFolder(home.path()), clock);
        manager =
            std::make_unique<ClipboardManager>(h->mainQueue, pasteboard, *keys, *history, notifications);
    }
    void TearDown() override {
        manager.reset();
        // Leave no key down for the next test.
        if (keys) keys->releaseHeldModifiers();
        for (pid_t pid : children) h->session.stop(pid);
    }

    // A Qt text field in a separate process; returns the file that mirrors its text.
    std::filesystem::path startTextField() {
        const auto out = home / "field.txt";
        const auto self = std::filesystem::read_symlink("/proc/self/exe").string();
        children.push_back(h->session.spawn({self}, {"VOCLE_TEST_PASTE_TARGET=" + out.string()}));
        EXPECT_TRUE(h->pumpUntil([&] { return std::filesystem::exists(out.string() + ".ready"); }, 15.0))
            << "the text field did not get the focus";
        return out;
    }

    // What another client gets when it asks for the clipboard now.
    std::string clipboardAsSeenByAnotherClient() {
        const auto out = home / "xclip.txt";
        std::filesystem::remove(out);
        const pid_t pid =
            h->session.spawn({"sh", "-c", "xclip -o -selection clipboard > '" + out.string() + "'"});
        EXPECT_TRUE(h->pumpUntil([&] { return !h->session.isRunning(pid); }, 10.0));
        return readText(out);
    }

    X11Harness* h = nullptr;
    TempDir home;
    std::shared_ptr<CapturingLogSink> logs = std::make_shared<CapturingLogSink>();
    ScopedLogSink scopedLogs{logs};
    SystemClock clock;
    QtPasteboard pasteboard;
    std::unique_ptr<XTestSyntheticKeys> keys;
    std::unique_ptr<HistoryService> history;
    NotificationCenter notifications;
    std::unique_ptr<ClipboardManager> manager;
    std::vector<pid_t> children;
};

TEST_F(X11PasteTest, PastesIntoATextFieldOfAnotherClientOnceTheUserLetsGoOfAlt) {
    const auto field = startTextField();
    ASSERT_EQ(keys->focusedWindowClass().value_or("").find("erm"), std::string::npos);
    int completed = 0;
    auto observer =
        notifications.addObserver("TranscriptionCompleted", [&](const Notification&) { ++completed; });

    // The stop shortcut's Alt is still down when the transcript arrives.
    ASSERT_TRUE(h->xdotool({"keydown", "alt"}));
    ASSERT_EQ(keys->heldModifiers(), kModifierOption);
    const std::string text = "Grüße from Vocle, 42!";
    manager->copyAndPaste(text);
    EXPECT_EQ(pasteboard.string(), text);
    h->pumpFor(0.4);
    EXPECT_EQ(completed, 0) << "no paste while Alt is held";
    EXPECT_EQ(readText(field), "");

    ASSERT_TRUE(h->xdotool({"keyup", "alt"}));
    EXPECT_TRUE(h->pumpUntil([&] { return readText(field) == text; }, 10.0))
        << "field: '" << readText(field) << "'";
    EXPECT_EQ(completed, 1);
    EXPECT_TRUE(h->pumpUntil([&] { return history->transcriptions.get().size() == 1; }, 5.0));
    EXPECT_EQ(history->transcriptions.get().front().text, text);

    // The clipboard stays ours after the window that pasted it is gone.
    h->session.stop(children.back());
    children.pop_back();
    EXPECT_EQ(clipboardAsSeenByAnotherClient(), text);
}

TEST_F(X11PasteTest, ModifierHeldPastTheTimeoutIsReleasedBeforePasting) {
    const auto field = startTextField();
    ASSERT_TRUE(h->xdotool({"keydown", "alt"}));
    const auto start = std::chrono::steady_clock::now();
    manager->copyAndPaste("stuck Alt");
    EXPECT_TRUE(h->pumpUntil([&] { return readText(field) == "stuck Alt"; }, 10.0)) << readText(field);
    const double waited = secondsSince(start);
    EXPECT_GE(waited, ClipboardManager::kModifierReleaseTimeout.count() - 0.05);
    EXPECT_EQ(keys->heldModifiers(), 0u) << "no modifier leaks into the target";
    EXPECT_TRUE(logs->contains("⚠️ Modifiers still held"));
}

TEST_F(X11PasteTest, TerminalsGetCtrlShiftV) {
    const auto typed = home / "terminal.txt";
    // xterm binds Ctrl+Shift+V to the clipboard the way most terminals do out of the box; a plain
    // Ctrl+V would reach cat as a ^V byte.
    children.push_back(h->session.spawn(
        {"xterm", "-xrm",
         "XTerm*VT100.translations: #override Shift Ctrl <Key>V: insert-selection(CLIPBOARD)", "-e", "sh",
         "-c", "cat > '" + typed.string() + "'"}));
    ASSERT_TRUE(h->pumpUntil(
        [&] { return keys->focusedWindowClass() == "XTerm" && std::filesystem::exists(typed); }, 15.0));

    bool done = false;
    auto observer =
        notifications.addObserver("TranscriptionCompleted", [&](const Notification&) { done = true; });
    manager->copyAndPaste("pasted into a terminal");
    ASSERT_TRUE(h->pumpUntil([&] { return done; }, 5.0));
    // cat passes a line on at Return; our event loop must run while xterm fetches the clipboard.
    h->pumpFor(0.5);
    ASSERT_TRUE(h->xdotool({"key", "Return"}));
    EXPECT_TRUE(h->pumpUntil([&] { return readText(typed) == "pasted into a terminal\n"; }, 10.0))
        << "terminal got: '" << readText(typed) << "'";
}

}  // namespace
