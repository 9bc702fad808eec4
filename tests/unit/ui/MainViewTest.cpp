#include <gtest/gtest.h>

// Our headers before Qt's: Qt's keyword macros (emit, slots) would rewrite names in foundation/Signal.h.
#include "core/AppConstants.h"
#include "ui/LoadingOverlay.h"
#include "ui/MainView.h"
#include "ui/SignInOverlay.h"
#include "ui/Theme.h"
#include "ui/TrayIcon.h"
#include "unit/desktop/DesktopRig.h"

#include <QAction>
#include <QApplication>
#include <QElapsedTimer>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>
#include <QToolButton>

using namespace vocle;
using namespace vocle::testing;
using vocle::ui::MainView;

namespace {

QApplication& qtApp() {
    if (!QApplication::instance()) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        static int argc = 1;
        static char name[] = "unit_ui_tests";
        static char* argv[] = {name, nullptr};
        // Never destroyed: tearing Qt down in exit handlers crashes in the input-device registry.
        auto* app = new QApplication(argc, argv);
        ui::Theme::apply(*app);
    }
    return *qobject_cast<QApplication*>(QApplication::instance());
}

struct WindowRig {
    QApplication& app = qtApp();  // before any widget
    DesktopRig rig;
    std::vector<ui::DetailScreen> made;
    MainView view{*rig.app,
                  [this](const ui::DetailScreen& s, QWidget*) -> QWidget* {
                      made.push_back(s);
                      return nullptr;
                  },
                  [] { return std::optional<std::string>("  424242 \n"); }};
    AppState& state() { return rig.graph->state(); }
    bool visible(QWidget* w) { return w && w->isVisible(); }
};

TEST(MainView, SidebarHasTheSevenEntriesAndCtrlSTogglesIt) {
    WindowRig w;
    w.view.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&w.view));
    EXPECT_EQ(w.view.size(), QSize(650, 600));
    EXPECT_EQ(w.view.sidebar()->width(), 180);
    std::vector<std::string> titles;
    for (const auto& e : MainView::sidebarEntries()) titles.push_back(e.title);
    EXPECT_EQ(titles, (std::vector<std::string>{"Home", "Modes", "Replacements", "Vocabulary", "Settings", "History",
                                                "Help"}));
    EXPECT_TRUE(w.view.sidebar()->isVisible());
    QTest::keyClick(&w.view, Qt::Key_S, Qt::ControlModifier);
    EXPECT_FALSE(w.view.sidebar()->isVisible());
    QTest::keyClick(&w.view, Qt::Key_S, Qt::ControlModifier);
    EXPECT_TRUE(w.view.sidebar()->isVisible());
}

TEST(MainView, ClickingRowsSelectsTabsAndUnknownTabsFallToTheModeList) {
    WindowRig w;
    w.view.show();
    QTest::mouseClick(w.view.sidebarButton(Tab::help), Qt::LeftButton);
    EXPECT_EQ(w.state().selectedTab.get(), Tab::help);
    EXPECT_EQ(w.view.detailScreen().kind, ui::DetailScreen::Kind::help);
    EXPECT_TRUE(w.view.sidebarButton(Tab::help)->isChecked());
    QTest::mouseClick(w.view.sidebarButton(Tab::home), Qt::LeftButton);
    EXPECT_EQ(w.state().selectedTab.get(), -1);
    EXPECT_TRUE(w.view.sidebarButton(Tab::home)->isChecked());

    w.state().selectedTab.set(3);
    EXPECT_EQ(w.view.detailScreen().kind, ui::DetailScreen::Kind::modes);
    EXPECT_TRUE(w.rig.logs->contains("MainView Detail: Tab=3, Editing=false, SelectedID=nil"));
    EXPECT_TRUE(w.rig.logs->contains("MainView Detail Default Case: Editing=false, SelectedID=nil"));
    EXPECT_TRUE(w.rig.logs->contains("MainView Detail Default Case: Showing ModesView"));
    w.state().selectedTab.set(0);
    EXPECT_TRUE(w.rig.logs->contains("MainView Detail Case 0: Showing ModesView"));
    // The factory was asked for every new screen.
    ASSERT_FALSE(w.made.empty());
    EXPECT_EQ(w.made.back().kind, ui::DetailScreen::Kind::modes);
}

TEST(MainView, HelpPlaceholderOpensTheDocs) {
    WindowRig w;
    w.view.show();
    w.state().selectedTab.set(Tab::help);
    auto* docs = w.view.detailWidget()->findChild<QPushButton*>("OpenDocsButton");
    ASSERT_NE(docs, nullptr);
    QTest::mouseClick(docs, Qt::LeftButton);
    EXPECT_EQ(w.rig.urlOpener.opened, (std::vector<std::string>{"http://127.0.0.1:9/docs"}));
}

TEST(MainView, SignInOverlayWinsOverLoadingAndCtrlVPastesTheCode) {
    WindowRig w;
    w.view.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&w.view));
    ASSERT_TRUE(w.state().requiresSignIn.get());
    EXPECT_TRUE(w.state().isInitializing.get());
    EXPECT_TRUE(w.visible(w.view.signInOverlay()));
    EXPECT_FALSE(w.visible(w.view.loadingOverlay()));
    EXPECT_EQ(w.view.signInOverlay()->primaryButton()->text(), "Send code");

    auto* email = w.view.signInOverlay()->emailField();
    EXPECT_EQ(email->placeholderText(), "Enter your email");
    QTest::keyClicks(email, "bad@x");
    QTest::mouseClick(w.view.signInOverlay()->primaryButton(), Qt::LeftButton);
    auto* error = w.view.signInOverlay()->findChild<QLabel*>("SignInError");
    EXPECT_EQ(error->text(), "Invalid email");

    // Ctrl+V does nothing in the address step, and pastes the trimmed clipboard in the code step.
    auto* code = w.view.signInOverlay()->codeField();
    QTest::keyClick(email, Qt::Key_V, Qt::ControlModifier);
    w.rig.queue.runUntilIdle();
    EXPECT_EQ(code->text(), "");

    // Sending moves on to the code step whatever the outcome (nothing listens on the backend's port).
    email->clear();
    QTest::keyClicks(email, "ada@example.org");
    QTest::mouseClick(w.view.signInOverlay()->primaryButton(), Qt::LeftButton);
    QElapsedTimer waited;
    waited.start();
    while (!code->isVisible() && waited.elapsed() < 10000) {
        w.rig.queue.runUntilIdle();
        QApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    ASSERT_TRUE(code->isVisible());
    EXPECT_EQ(w.view.signInOverlay()->primaryButton()->text(), "Verify");
    QTest::keyClick(code, Qt::Key_V, Qt::ControlModifier);
    w.rig.queue.runUntilIdle();
    EXPECT_EQ(code->text(), "424242");
}

TEST(MainView, InitializationFailureShowsItsTextAndTryAgainReturnsToLoading) {
    WindowRig w;
    w.view.show();
    // Leave sign-in by saving a session; start-up then fails against the unreachable backend.
    w.rig.graph->sessions.save({"a", "r", "u", "e@example.org"});
    w.rig.queue.runUntilIdle();
    EXPECT_FALSE(w.visible(w.view.signInOverlay()));
    ASSERT_TRUE(w.visible(w.view.loadingOverlay()));
    auto* title = w.view.loadingOverlay()->findChild<QLabel*>("LoadingTitle");
    EXPECT_EQ(title->text(), "Loading Vocle...");

    w.state().initializationError.set(std::string("The backend could not be reached."));
    EXPECT_EQ(title->text(), "Initialization Failed");
    EXPECT_EQ(w.view.loadingOverlay()->findChild<QLabel*>("LoadingText")->text(), "The backend could not be reached.");
    ASSERT_TRUE(w.view.loadingOverlay()->retryButton()->isVisible());
    QTest::mouseClick(w.view.loadingOverlay()->retryButton(), Qt::LeftButton);
    EXPECT_FALSE(w.state().initializationError.get().has_value());
    EXPECT_EQ(title->text(), "Loading Vocle...");
}

TEST(MainView, DictationMenuCancelIsEnabledOnlyWhileRecording) {
    WindowRig w;
    EXPECT_FALSE(w.view.cancelRecordingAction()->isEnabled());
    w.state().isRecording.set(true);
    EXPECT_TRUE(w.view.cancelRecordingAction()->isEnabled());
    w.state().isRecording.set(false);
    EXPECT_FALSE(w.view.cancelRecordingAction()->isEnabled());
}

}  // namespace

namespace {

TEST(TrayIcon, MenuMirrorsTheModelWithShortcutHintsAndTurnsRedWhileRecording) {
    WindowRig w;
    w.rig.app->mainViewAppeared();  // binds the tray model
    ui::TrayIcon tray(w.rig.app->statusItem());
    auto texts = [&] {
        std::vector<std::string> out;
        for (QAction* a : tray.menu()->actions()) out.push_back(a->isSeparator() ? "-" : a->text().toStdString());
        return out;
    };
    EXPECT_EQ(texts(), (std::vector<std::string>{"Toggle Recording\tCtrl+Alt+Space", "Cancel Recording\tEsc",
                                                 "-", "Show Permissions", "Check for Updates…", "-",
                                                 "Open Main Window", "Sign Out", "Quit Vocle"}));
    EXPECT_FALSE(tray.menu()->actions()[1]->isEnabled());
    EXPECT_FALSE(tray.showsRecordingIcon());
    EXPECT_FALSE(tray.trayIcon()->icon().isNull());

    w.state().isRecording.set(true);
    EXPECT_TRUE(tray.showsRecordingIcon());
    EXPECT_TRUE(tray.menu()->actions()[1]->isEnabled());
    EXPECT_EQ(tray.menu()->actions()[0]->text().toStdString(), "Stop Recording\tCtrl+Alt+Space");

    tray.menu()->actions()[8]->trigger();
    EXPECT_EQ(w.rig.quits, 1);
    tray.menu()->actions()[6]->trigger();
    EXPECT_EQ(w.rig.mainWindowOpens, 1);
}

}  // namespace
