#include <gtest/gtest.h>

#include "desktop/FloatingIndicatorManager.h"
#include "desktop/LivePreview.h"
#include "platform/testing/FakeIndicatorPanels.h"

using namespace vocle;
using namespace vocle::testing;

namespace {

struct PreviewRig {
    FakeIndicatorPanels panels;
    bool enabled = true;
    LivePreview preview{panels, [this] { return enabled; }};
    Observable<bool> isRecording{false};
    Observable<std::string> partial{""};
    PreviewRig() { preview.setup(isRecording, partial); }
    FakePreviewBubble& bubble() { return *panels.bubbles.at(0); }
};

TEST(LivePreview, ShowsTheLatestWordsWhileRecordingAndFadesWhenTheRecordingEnds) {
    PreviewRig rig;
    rig.partial.set("ignored before the recording");
    EXPECT_TRUE(rig.panels.bubbles.empty());

    rig.isRecording.set(true);
    rig.partial.set("");
    EXPECT_TRUE(rig.panels.bubbles.empty()) << "no empty bubble before the first words";
    rig.partial.set("hello");
    ASSERT_EQ(rig.panels.bubbles.size(), 1u);
    EXPECT_TRUE(rig.bubble().visible);
    EXPECT_EQ(rig.bubble().text, "hello");
    rig.partial.set("hello world");
    EXPECT_EQ(rig.bubble().text, "hello world");
    EXPECT_EQ(rig.panels.bubbles.size(), 1u) << "one bubble, reused";

    // Left of the indicator, vertically centred on it, not overlapping it.
    const ScreenRect indicator = FloatingIndicatorManager::panelFrame(*rig.panels.mainScreen);
    const ScreenRect frame = rig.bubble().frame;
    EXPECT_DOUBLE_EQ(frame.maxX(), indicator.x - LivePreview::kGap);
    EXPECT_DOUBLE_EQ(frame.midY(), indicator.midY());
    EXPECT_GE(frame.x, 0.0);

    rig.isRecording.set(false);
    EXPECT_EQ(rig.bubble().fadeCount, 1);
    EXPECT_DOUBLE_EQ(rig.bubble().lastFadeSeconds, LivePreview::kFadeDuration.count());
    EXPECT_EQ(rig.preview.shownText(), "");
    rig.partial.set("a late partial after the stop");
    EXPECT_FALSE(rig.bubble().visible);

    // The next dictation starts afresh in the same bubble.
    rig.isRecording.set(true);
    rig.partial.set("again");
    EXPECT_TRUE(rig.bubble().visible);
    EXPECT_EQ(rig.bubble().text, "again");
}

TEST(LivePreview, TheSettingIsReadAtEachStart) {
    PreviewRig rig;
    rig.enabled = false;
    rig.isRecording.set(true);
    rig.partial.set("private words");
    EXPECT_TRUE(rig.panels.bubbles.empty());
    rig.enabled = true;  // changed mid-recording: applies from the next one
    rig.partial.set("private words still");
    EXPECT_TRUE(rig.panels.bubbles.empty());
    rig.isRecording.set(false);
    rig.isRecording.set(true);
    rig.partial.set("shown");
    ASSERT_EQ(rig.panels.bubbles.size(), 1u);
    EXPECT_EQ(rig.bubble().text, "shown");
}

TEST(LivePreview, KeepsTheLastTwoLinesWrappedOnWords) {
    EXPECT_EQ(LivePreview::lastLines("one two three", 9, 2), "one two\nthree");
    EXPECT_EQ(LivePreview::lastLines("one two three four five six", 9, 2), "\u2026four five\nsix");
    EXPECT_EQ(LivePreview::lastLines("aa bb cc dd ee", 5, 2), "\u2026cc dd\nee");
    EXPECT_EQ(LivePreview::lastLines("  spaced   out  ", 40, 2), "spaced out");
    EXPECT_EQ(LivePreview::lastLines("", 40, 2), "");
    // Characters, not bytes: "é" is one.
    EXPECT_EQ(LivePreview::lastLines("\u00e9\u00e9\u00e9 \u00e9\u00e9", 6, 1),
              "\u00e9\u00e9\u00e9 \u00e9\u00e9");
    // A word longer than a line stands alone.
    EXPECT_EQ(LivePreview::lastLines("a supercalifragilistic b", 6, 2), "\u2026supercalifragilistic\nb");
}

}  // namespace
