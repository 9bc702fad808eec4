#pragma once

#include <deque>
#include <string>

#include "foundation/MainQueue.h"
#include "foundation/NotificationCenter.h"
#include "foundation/OwnerToken.h"
#include "foundation/Timer.h"
#include "platform/events.h"
#include "platform/notifications.h"
#include "recording/TranscriptPaster.h"
#include "storage/HistoryService.h"

namespace vocle {

// Delivers a transcript: the clipboard gets the text (and keeps it), the focused window gets the paste
// chord, the history gets the entry 0.6 s later and "TranscriptionCompleted" is posted. Main thread only.
//
// The chord waits until the user has let go of the modifiers (the stop shortcut's Option is often still
// held when the transcript arrives), checking every kModifierPollInterval; after kModifierReleaseTimeout it
// releases them itself and pastes anyway. Terminals paste with Ctrl+Shift+V, everything else with Ctrl+V.
// Where the keys take another road than the clipboard (a desktop portal), the chord also waits until
// SyntheticKeys::clipboardSettleTime has passed since the clipboard was written.
// Transcripts that arrive while one is waiting are delivered after it, in order. When no keys can reach
// the focused window (SyntheticKeys::canDeliver), the text stays on the clipboard and the user gets a
// passive notice to paste it; the history entry and the notification follow as for a paste. While the
// desktop is still asking the user whether we may send keys (SyntheticKeys::deliveryPending), the paste
// waits for that answer, checking every kConsentPollInterval for at most kConsentTimeout: the dictation
// that brought up the consent dialog is the first one typed.
class ClipboardManager final : public TranscriptPaster {
  public:
    static constexpr Seconds kHistoryDelay{0.6};
    static constexpr Seconds kModifierPollInterval{0.02};
    static constexpr Seconds kModifierReleaseTimeout{1.0};
    static constexpr Seconds kConsentPollInterval{0.1};
    static constexpr Seconds kConsentTimeout{60.0};

    ClipboardManager(MainQueue& mainQueue, Pasteboard& pasteboard, SyntheticKeys& keys,
                     HistoryService& history, NotificationCenter& notifications,
                     std::string transcriptionCompletedNotification = "TranscriptionCompleted",
                     DesktopNotifications* notices = nullptr);

    static constexpr const char* kNoticeTitle = "Transcript on the clipboard";
    static constexpr const char* kNoticeBody = "Vocle cannot type into this window. Press Ctrl+V to paste.";

    const std::string transcriptionCompletedNotification;

    void copyAndPaste(const std::string& text) override;

    // True when windows of this WM_CLASS (X11) or app id (Wayland) paste with Ctrl+Shift+V.
    // Case-insensitive.
    static bool isTerminalClass(const std::string& windowClass);

  private:
    void startNext();
    void waitForConsent(MonotonicTime deadline);
    void leaveOnClipboard();
    void waitForModifiers(MonotonicTime deadline);
    void pasteNow();
    void simulatePaste();
    void finish(const std::string& text);

    MainQueue& mainQueue_;
    Pasteboard& pasteboard_;
    SyntheticKeys& keys_;
    HistoryService& history_;
    NotificationCenter& notifications_;
    DesktopNotifications* notices_;
    std::deque<std::string> pending_;
    bool busy_ = false;
    MonotonicTime clipboardWrittenAt_{};
    Timer pollTimer_;
    OwnerToken owner_;
};

}  // namespace vocle
