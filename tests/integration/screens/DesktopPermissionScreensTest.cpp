// The Settings screen's shortcut offers for desktops that run the toggle through vocle-cli, and the remote
// input permission on the Home checklist and the permissions screen, drawn under Xvfb.

// Our headers first: Qt's "emit" and "slots" macros would otherwise clash with the foundation's signals.
#include "foundation/VirtualMainQueue.h"
#include "platform/testing/FakeAccessibility.h"
#include "platform/testing/FakeCapture.h"
#include "platform/testing/FakeCustomKeybindings.h"
#include "platform/testing/FakeKeyMonitor.h"
#include "platform/testing/FakeRemoteInput.h"
#include "platform/testing/FakeSyntheticKeys.h"
#include "platform/testing/FakeUrlOpener.h"
#include "screens/HomeViewModel.h"
#include "screens/PermissionsViewModel.h"
#include "screens/SettingsViewModel.h"
#include "unit/modes/ModesTestGraph.h"
#include "unit/screens/RecordingShortcuts.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "integration/screens/HarnessTheme.h"
#include "integration/screens/ScreensDesktop.h"
#include "ui/screens/HomeView.h"
#include "ui/screens/PermissionsView.h"
#include "ui/screens/SettingsView.h"

using namespace vocle;
using namespace vocle::testing;

namespace {

ScreensDesktop& desktop() {
    auto& d = ScreensDesktop::shared();
    static bool themed = false;
    if (!themed) {
        applyHarnessTheme(d.app());
        themed = true;
    }
    return d;
}

// The main window's frame around one screen: 650×600 with the 180 px sidebar on the left.
class Frame {
  public:
    Frame() {
        window_.setWindowFlag(Qt::FramelessWindowHint);
        window_.setFixedSize(650, 600);
        window_.move(0, 0);
        auto* h = new QHBoxLayout(&window_);
        h->setContentsMargins(0, 0, 0, 0);
        h->setSpacing(0);
        auto* sidebar = new QFrame;
        sidebar->setFixedWidth(180);
        sidebar->setStyleSheet("background: #18181a; border-right: 1px solid #2c2c30;");
        h->addWidget(sidebar);
        slot_ = new QVBoxLayout;
        h->addLayout(slot_, 1);
    }
    template <class View, class VM>
    View& show(VM& vm) {
        auto* view = new View(vm, &window_);
        slot_->addWidget(view);
        desktop().run("xdotool mousemove 5 595");
        window_.show();
        desktop().pumpUntil([&] { return window_.isVisible() && view->isVisible(); }, 5);
        return *view;
    }
    QWidget& window() { return window_; }

  private:
    QWidget window_;
    QVBoxLayout* slot_;
};

bool nonTrivialPng(const std::filesystem::path& file) {
    return std::filesystem::exists(file) && std::filesystem::file_size(file) > 3000;
}

// Every visible label shows all of its lines, inside the window.
void expectNothingClipped(QWidget& window) {
    for (auto* l : window.findChildren<QLabel*>()) {
        if (!l->isVisible() || l->text().isEmpty()) continue;
        const int needed = l->wordWrap() ? l->heightForWidth(l->width()) : l->sizeHint().height();
        EXPECT_GE(l->height(), needed) << l->text().toStdString();
        const QRect r(l->mapTo(&window, QPoint(0, 0)), l->size());
        EXPECT_LE(r.right(), window.width()) << l->text().toStdString();
        if (!l->wordWrap()) EXPECT_GE(l->width(), l->sizeHint().width()) << l->text().toStdString();
    }
}

QLabel* labelWithText(QWidget& in, const std::string& text) {
    for (auto* l : in.findChildren<QLabel*>())
        if (l->isVisible() && l->text().toStdString() == text) return l;
    return nullptr;
}

QPushButton* buttonWithText(QWidget& in, const QString& text) {
    for (auto* b : in.findChildren<QPushButton*>())
        if (b->isVisible() && b->text() == text) return b;
    return nullptr;
}

class DesktopPermissionScreensTest : public ::testing::Test {
  protected:
    void SetUp() override { desktop(); }
    SettingsViewModel::CompositorShortcuts shortcutsOf(ShortcutPath path) {
        SettingsViewModel::CompositorShortcuts c;
        c.keysymName = [](uint16_t keyCode) -> std::optional<std::string> {
            if (keyCode == keys::kSpace) return "space";
            return std::nullopt;
        };
        c.pasteboard = &pasteboard;
        c.path = path;
        c.cliProgram = "/usr/bin/vocle-cli";
        c.keybindings = &gnome;
        return c;
    }

    ModesTestGraph g;
    FakeCapture capture;
    FakeAccessibility accessibility;
    SystemPermissionProbe probe{capture, accessibility};
    FakeUrlOpener urls;
    RecordingShortcuts shortcuts;
    FakeLocalKeyMonitor keyMonitor;
    FakePasteboard pasteboard;
    FakeCustomKeybindings gnome;
    FakeRemoteInput remote;
};

TEST_F(DesktopPermissionScreensTest, SettingsOffersGnomesShortcutsTheHandCommandAndTheCancelNote) {
    MapEnvironment env({{"HOME", (g.dir.path() / "home").string()},
                        {"XDG_CONFIG_HOME", (g.dir.path() / "config").string()}});
    AutostartEntry autostart(env, "/usr/bin/vocle");
    {
        SettingsViewModel vm(g.files, capture, shortcuts, keyMonitor, autostart);
        vm.setCompositorShortcuts(shortcutsOf(ShortcutPath::gnomeKeybinding));
        Frame f;
        f.show<SettingsView>(vm);
        EXPECT_TRUE(nonTrivialPng(desktop().screenshot("settings-gnome-shortcut")));
        // A real click on the button writes the entry.
        QPushButton* add = buttonWithText(f.window(), SettingsViewModel::kAddToGnomeTitle);
        ASSERT_NE(add, nullptr);
        const QPoint at = add->mapTo(&f.window(), add->rect().center());
        desktop().run("xdotool mousemove --sync " + std::to_string(at.x()) + " " + std::to_string(at.y()) +
                      " click 1");
        ASSERT_TRUE(desktop().pumpUntil([&] { return !gnome.writes.empty(); }, 5));
        EXPECT_EQ(gnome.writes[0].binding, "<Control><Alt>space");
        desktop().pump(0.2);
        EXPECT_NE(labelWithText(f.window(), "Added: GNOME starts and stops dictation on Ctrl+Alt+Space."),
                  nullptr);
        EXPECT_EQ(labelWithText(f.window(), "/usr/bin/vocle-cli toggle"), nullptr)
            << "added: nothing to bind by hand";
        desktop().run("xdotool mousemove 5 595");
        EXPECT_TRUE(nonTrivialPng(desktop().screenshot("settings-gnome-shortcut-added")));
        expectNothingClipped(f.window());
    }
    {
        gnome.missing =
            "GNOME's keyboard shortcut settings are not installed on this system (the schema "
            "org.gnome.settings-daemon.plugins.media-keys is missing), so Vocle cannot add the "
            "shortcut there. Bind the command below by hand.";
        SettingsViewModel vm(g.files, capture, shortcuts, keyMonitor, autostart);
        vm.setCompositorShortcuts(shortcutsOf(ShortcutPath::gnomeKeybinding));
        Frame f;
        f.show<SettingsView>(vm);
        EXPECT_NE(labelWithText(f.window(), *gnome.missing), nullptr);
        EXPECT_TRUE(nonTrivialPng(desktop().screenshot("settings-gnome-no-schema")));
        expectNothingClipped(f.window());
        gnome.missing.reset();
    }
    {
        SettingsViewModel vm(g.files, capture, shortcuts, keyMonitor, autostart);
        vm.setCompositorShortcuts(shortcutsOf(ShortcutPath::byHand));
        Frame f;
        f.show<SettingsView>(vm);
        EXPECT_EQ(buttonWithText(f.window(), SettingsViewModel::kAddToGnomeTitle), nullptr);
        EXPECT_NE(labelWithText(f.window(), "/usr/bin/vocle-cli toggle"), nullptr);
        QPushButton* copy = buttonWithText(f.window(), "Copy");
        ASSERT_NE(copy, nullptr);
        copy->click();
        EXPECT_EQ(pasteboard.string(), "/usr/bin/vocle-cli toggle");
        EXPECT_EQ(copy->text(), "Copied");
        EXPECT_TRUE(nonTrivialPng(desktop().screenshot("settings-bind-by-hand")));
        expectNothingClipped(f.window());
    }
    {
        auto c = shortcutsOf(ShortcutPath::portal);
        c.cancelFromTrayOnly = true;
        SettingsViewModel vm(g.files, capture, shortcuts, keyMonitor, autostart);
        vm.setCompositorShortcuts(c);
        Frame f;
        f.show<SettingsView>(vm);
        EXPECT_NE(labelWithText(f.window(), SettingsViewModel::kCancelFromTrayText), nullptr);
        EXPECT_EQ(buttonWithText(f.window(), "Copy"), nullptr);
        EXPECT_TRUE(nonTrivialPng(desktop().screenshot("settings-portal-cancel-note")));
        expectNothingClipped(f.window());
    }
}

TEST_F(DesktopPermissionScreensTest, RemoteInputOnThePermissionsScreenAndTheChecklist) {
    accessibility.setTrusted(false);
    urls.application = "Settings";
    urls.places[kAccessibilitySettingsURL] = "Settings > Accessibility";
    {
        PermissionsViewModel vm(g.queue, probe, urls, &remote);
        Frame f;
        f.show<PermissionsView>(vm);
        EXPECT_NE(labelWithText(f.window(), "You can change these later in Settings."), nullptr);
        EXPECT_TRUE(nonTrivialPng(desktop().screenshot("permissions-remote-input")));
        expectNothingClipped(f.window());
        QPushButton* enable = nullptr;
        for (auto* b : f.window().findChildren<QPushButton*>())
            if (b->isVisible() && b->accessibleName() == "Enable Remote input") enable = b;
        ASSERT_NE(enable, nullptr);
        const QPoint at = enable->mapTo(&f.window(), enable->rect().center());
        desktop().run("xdotool mousemove --sync " + std::to_string(at.x()) + " " + std::to_string(at.y()) +
                      " click 1");
        ASSERT_TRUE(desktop().pumpUntil([&] { return remote.requests == 1; }, 5));
        desktop().run("xdotool mousemove 5 595");
        ASSERT_TRUE(desktop().pumpUntil([&] { return buttonWithText(f.window(), "Asking…") != nullptr; }, 5));
        EXPECT_TRUE(nonTrivialPng(desktop().screenshot("permissions-remote-input-asking")));
        remote.answer(RemoteInputState::refused);
        ASSERT_TRUE(desktop().pumpUntil(
            [&] { return labelWithText(f.window(), PermissionsViewModel::kRemoteInputRefused) != nullptr; },
            5));
        EXPECT_TRUE(nonTrivialPng(desktop().screenshot("permissions-remote-input-refused")));
        expectNothingClipped(f.window());
        remote.answer(RemoteInputState::granted);
        ASSERT_TRUE(
            desktop().pumpUntil([&] { return !f.window().findChildren<QPushButton*>().isEmpty(); }, 5));
        desktop().pump(0.2);
        EXPECT_TRUE(nonTrivialPng(desktop().screenshot("permissions-remote-input-granted")));
    }
    {
        remote.set(RemoteInputState::notGranted);
        Observable<std::optional<std::string>> vocabulary;
        Observable<int> tab{-1};
        HomeViewModel vm({*g.modeManager, vocabulary, tab, g.files, probe, urls, shortcuts, &remote});
        Frame f;
        f.show<HomeView>(vm);
        // Rows come back on the next turn of the event loop once the screen has re-read its state.
        EXPECT_TRUE(desktop().pumpUntil(
            [&] { return labelWithText(f.window(), "Grant remote input permission") != nullptr; }, 5));
        EXPECT_NE(labelWithText(f.window(), "1 of 7 complete"), nullptr);
        remote.set(RemoteInputState::granted);
        ASSERT_TRUE(
            desktop().pumpUntil([&] { return labelWithText(f.window(), "2 of 7 complete") != nullptr; }, 5));
        EXPECT_TRUE(nonTrivialPng(desktop().screenshot("home-remote-input-granted")));
        expectNothingClipped(f.window());
    }
}

}  // namespace
