#include "desktop/ClipboardManager.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "foundation/Log.h"
#include "foundation/MainQueueCheck.h"

namespace vocle {

namespace {

// Code points: continuation bytes do not start a character.
size_t characterCount(const std::string& text) {
    return static_cast<size_t>(std::count_if(
        text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

std::string lowercase(std::string s) {
    std::transform(s.begin(), s.end(), s.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return s;
}

}  // namespace

ClipboardManager::ClipboardManager(MainQueue& mainQueue, Pasteboard& pasteboard, SyntheticKeys& keys,
                                   HistoryService& history, NotificationCenter& notifications,
                                   std::string transcriptionCompletedNotification,
                                   DesktopNotifications* notices)
    : transcriptionCompletedNotification(std::move(transcriptionCompletedNotification)),
      mainQueue_(mainQueue),
      pasteboard_(pasteboard),
      keys_(keys),
      history_(history),
      notifications_(notifications),
      notices_(notices) {}

bool ClipboardManager::isTerminalClass(const std::string& windowClass) {
    // WM_CLASS class names (and a few instance names) of terminal emulators, which take Ctrl+V as a
    // control character and paste with Ctrl+Shift+V.
    static const std::array<const char*, 41> terminals = {
        "xterm",
        "uxterm",
        "urxvt",
        "rxvt",
        "gnome-terminal",
        "gnome-terminal-server",
        "org.gnome.terminal",
        "kgx",
        "org.gnome.console",
        "konsole",
        "org.kde.konsole",
        "kitty",
        "alacritty",
        "tilix",
        "com.gexperts.tilix",
        "xfce4-terminal",
        "terminator",
        "wezterm",
        "org.wezfurlong.wezterm",
        "foot",
        "footclient",
        "st",
        "st-256color",
        "sakura",
        "lxterminal",
        "mate-terminal",
        "qterminal",
        "terminology",
        "guake",
        "tilda",
        "yakuake",
        "deepin-terminal",
        "cool-retro-term",
        "ghostty",
        "com.mitchellh.ghostty",
        "eterm",
        "ptyxis",
        "org.gnome.ptyxis",
        "org.xfce.terminal",
        "org.kde.yakuake",
        "kitty-quick-access",
    };
    const std::string name = lowercase(windowClass);
    return std::find(terminals.begin(), terminals.end(), name) != terminals.end();
}

void ClipboardManager::copyAndPaste(const std::string& text) {
    VOCLE_ASSERT_MAIN_QUEUE(mainQueue_);
    pending_.push_back(text);
    // A transcript that arrives while an earlier one waits to be pasted must not replace the clipboard
    // under it.
    if (!busy_) startNext();
}

void ClipboardManager::startNext() {
    if (pending_.empty()) {
        busy_ = false;
        return;
    }
    busy_ = true;
    const std::string& text = pending_.front();
    log("TIMESTAMP: ", formatTimestamp(mainQueue_.clock().now()), " - copying ", characterCount(text),
        " chars to clipboard");
    pasteboard_.clearContents();
    pasteboard_.setString(text);
    clipboardWrittenAt_ = mainQueue_.clock().monotonicNow();
    log("TIMESTAMP: ", formatTimestamp(mainQueue_.clock().now()),
        " - clipboard copy completed, starting paste");
    if (!keys_.canDeliver()) {
        if (keys_.deliveryPending()) {
            log("⏳ Waiting for the desktop to allow keyboard input");
            waitForConsent(mainQueue_.clock().monotonicNow() + kConsentTimeout);
            return;
        }
        leaveOnClipboard();
        return;
    }
    waitForModifiers(mainQueue_.clock().monotonicNow() + kModifierReleaseTimeout);
}

void ClipboardManager::waitForConsent(MonotonicTime deadline) {
    if (keys_.canDeliver()) {
        waitForModifiers(mainQueue_.clock().monotonicNow() + kModifierReleaseTimeout);
        return;
    }
    const Seconds left = deadline - mainQueue_.clock().monotonicNow();
    if (keys_.deliveryPending() && left.count() > 1e-6) {
        pollTimer_.start(mainQueue_, std::min(kConsentPollInterval, left),
                         owner_.guard([this, deadline] { waitForConsent(deadline); }));
        return;
    }
    leaveOnClipboard();
}

void ClipboardManager::leaveOnClipboard() {
    log("⚠️ No way to send keys to the focused window; the transcript stays on the clipboard");
    if (notices_) notices_->notify(DesktopNotice{kNoticeTitle, kNoticeBody, {}});
    finish(pending_.front());
}

void ClipboardManager::waitForModifiers(MonotonicTime deadline) {
    const uint64_t held = keys_.heldModifiers();
    // A transcript can be ready within milliseconds of the stop (a streamed one is): the shortcut's own
    // key may still be down then, with the keyboard grabbed by the shortcut's owner.
    if (held != 0 || keys_.nonModifierKeyHeld()) {
        const Seconds left = deadline - mainQueue_.clock().monotonicNow();
        // Sums of poll intervals fall short of the deadline by rounding; the last poll lands on it.
        if (left.count() > 1e-6) {
            pollTimer_.start(mainQueue_, std::min(kModifierPollInterval, left),
                             owner_.guard([this, deadline] { waitForModifiers(deadline); }));
            return;
        }
        if (held != 0) {
            log("⚠️ Modifiers still held (", held, "); releasing them before pasting");
            keys_.releaseHeldModifiers();
        }
    }
    const Seconds settle =
        keys_.clipboardSettleTime() - (mainQueue_.clock().monotonicNow() - clipboardWrittenAt_);
    if (settle.count() > 1e-6) {
        pollTimer_.start(mainQueue_, settle, owner_.guard([this] { pasteNow(); }));
        return;
    }
    pasteNow();
}

void ClipboardManager::pasteNow() {
    simulatePaste();
    finish(pending_.front());
}

void ClipboardManager::simulatePaste() {
    const auto windowClass = keys_.focusedWindowClass();
    const bool terminal = windowClass && isTerminalClass(*windowClass);
    keys_.postKey(keycode::kControl, true);
    if (terminal) keys_.postKey(keycode::kShift, true);
    keys_.postKey(keycode::kV, true);
    keys_.postKey(keycode::kV, false);
    if (terminal) keys_.postKey(keycode::kShift, false);
    keys_.postKey(keycode::kControl, false);
}

void ClipboardManager::finish(const std::string& textRef) {
    const std::string text = textRef;
    pending_.pop_front();
    log("TIMESTAMP: ", formatTimestamp(mainQueue_.clock().now()), " - paste simulation completed");
    // Keeps file work out of the moment of pasting.
    mainQueue_.postAfter(kHistoryDelay, owner_.guard([this, text] { history_.addTranscription(text); }));
    notifications_.post(transcriptionCompletedNotification, this, UserInfo{{"text", text}});
    log("Transcription complete: ", text);
    startNext();
}

}  // namespace vocle
