#include "platform/linux/FrontmostCrossCheck.h"

#include <gtest/gtest.h>

#include "foundation/Log.h"
#include "foundation/VirtualMainQueue.h"
#include "platform/testing/FakeWorkspace.h"

namespace vocle {
namespace {

using testing::FakeWorkspace;
using testing::makeApplication;

class FrontmostCrossCheckTest : public ::testing::Test {
  protected:
    std::shared_ptr<CapturingLogSink> logs = std::make_shared<CapturingLogSink>();
    ScopedLogSink scope{logs};
    VirtualMainQueue queue;
    FakeWorkspace compositor;
    FakeWorkspace bus;
    FrontmostCrossCheck check{queue, compositor, bus};
    const RunningApplication editor = makeApplication("org.gnome.TextEditor", "Text Editor", 0);
    const RunningApplication terminal = makeApplication("org.gnome.Terminal", "Terminal", 42);

    size_t disagreements() const { return logs->count("Frontmost application: the compositor says"); }
};

TEST_F(FrontmostCrossCheckTest, LogsADisagreementOnceBothHaveSettled) {
    compositor.activate(editor);
    queue.advance(FrontmostCrossCheck::kSettleSeconds / 2);
    // The bus reports late, and names another application.
    bus.activate(terminal);
    queue.advance(FrontmostCrossCheck::kSettleSeconds * 0.9);
    EXPECT_EQ(disagreements(), 0u) << "compared only a settled moment after the last report";
    queue.advance(FrontmostCrossCheck::kSettleSeconds * 0.2);
    ASSERT_EQ(disagreements(), 1u);
    EXPECT_TRUE(logs->contains(
        "⚠️ Frontmost application: the compositor says org.gnome.TextEditor, the accessibility bus says "
        "org.gnome.Terminal"));

    // The same disagreement again is not news; after an agreement it is.
    compositor.activate(editor);
    queue.advance(FrontmostCrossCheck::kSettleSeconds * 2);
    EXPECT_EQ(disagreements(), 1u);
    compositor.activate(makeApplication("org.gnome.Terminal", "Terminal", 0));
    queue.advance(FrontmostCrossCheck::kSettleSeconds * 2);
    compositor.activate(editor);
    queue.advance(FrontmostCrossCheck::kSettleSeconds * 2);
    EXPECT_EQ(disagreements(), 2u);
}

TEST_F(FrontmostCrossCheckTest, AnApplicationUnseenOnTheBusIsNoDisagreement) {
    bus.activate(terminal);
    bus.setFrontmost(std::nullopt);
    compositor.activate(editor);
    queue.advance(FrontmostCrossCheck::kSettleSeconds * 2);
    EXPECT_EQ(disagreements(), 0u);
    bus.activate(editor);
    queue.advance(FrontmostCrossCheck::kSettleSeconds * 2);
    EXPECT_EQ(disagreements(), 0u);
    EXPECT_EQ(queue.pendingCount(), 0u);
}

}  // namespace
}  // namespace vocle
