// Our headers first: Qt's "emit" and "slots" macros would otherwise clash with the foundation's signals.
#include "foundation/FileIO.h"
#include "foundation/VirtualMainQueue.h"
#include "platform/testing/FakeAccessibility.h"
#include "platform/testing/FakeCapture.h"
#include "platform/testing/FakeKeyMonitor.h"
#include "platform/testing/FakeScreenCapture.h"
#include "platform/testing/FakeUrlOpener.h"
#include "screens/HelpViewModel.h"
#include "screens/HistoryViewModel.h"
#include "screens/HomeViewModel.h"
#include "screens/ModeDetailViewModel.h"
#include "screens/PermissionsViewModel.h"
#include "screens/ReplacementsViewModel.h"
#include "screens/SettingsViewModel.h"
#include "screens/ShortcutPickerViewModel.h"
#include "screens/VocabularyViewModel.h"
#include "unit/modes/ModesTestGraph.h"
#include "unit/screens/RecordingShortcuts.h"

#include <gtest/gtest.h>

#include <QAccessible>
#include <QApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QListView>
#include <QScrollArea>
#include <QScrollBar>
#include <QVBoxLayout>

#include "integration/screens/HarnessTheme.h"
#include "integration/screens/ScreensDesktop.h"
#include "platform/x11/QtLocalKeyMonitor.h"
#include "ui/screens/HelpView.h"
#include "ui/screens/HistoryView.h"
#include "ui/screens/HomeView.h"
#include "ui/screens/KeyCapsView.h"
#include "ui/screens/ModeDetailView.h"
#include "ui/screens/ModesView.h"
#include "ui/screens/PermissionsView.h"
#include "ui/screens/ReplacementsView.h"
#include "ui/screens/ScreenHost.h"
#include "ui/screens/SettingsView.h"
#include "ui/screens/ShortcutPickerSheet.h"
#include "ui/screens/VocabularyView.h"

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
class Harness {
  public:
    Harness() {
        window_.setWindowFlag(Qt::FramelessWindowHint);
        window_.setFixedSize(650, 600);
        window_.move(0, 0);
        auto* h = new QHBoxLayout(&window_);
        h->setContentsMargins(0, 0, 0, 0);
        h->setSpacing(0);
        auto* sidebar = new QFrame;
        sidebar->setFixedWidth(180);
        sidebar->setStyleSheet("background: #18181a; border-right: 1px solid #2c2c30;");
        auto* items = new QVBoxLayout(sidebar);
        items->setContentsMargins(12, 10, 12, 10);
        for (const char* t : {"Home", "Modes", "Replacements", "Vocabulary", "Settings", "History", "Help"}) {
            auto* l = new QLabel(t);
            l->setStyleSheet("color: #a1a1a6; padding: 6px; border: none;");
            items->addWidget(l);
        }
        items->addStretch();
        h->addWidget(sidebar);
        slot_ = new QVBoxLayout;
        h->addLayout(slot_, 1);
    }
    template <class View, class VM>
    View& show(VM& vm) {
        auto* view = new View(vm, &window_);
        slot_->addWidget(view);
        // The pointer rests on the sidebar so that no row shows its hover state by accident.
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

Json templatesJson() {
    auto t = [](const char* id, const char* name, const char* description) {
        return Json{{"id", id}, {"name", name}, {"prompt", std::string(name) + " prompt"}, {"language", "English"},
                    {"description", description}};
    };
    return {{"mode_types",
             {t("t-raw", "Raw", "Unprocessed transcription."), t("t-clean", "Clean", "Fillers removed and proper punctuation."),
              t("t-mail", "Email", "Structures text in email format with greetings and signatures.")}}};
}

class ScreensTest : public ::testing::Test {
  protected:
    void SetUp() override { desktop(); }
    ModesTestGraph g;
};

TEST_F(ScreensTest, ModeScreensRender) {
    g.cacheTemplates(templatesJson());
    Mode def = Mode::fresh("Default");
    def.isDefault = true;
    def.type = "Clean";
    def.modeTypeId = "t-clean";
    Mode mail = Mode::fresh("Mail replies");
    mail.type = "Email";
    mail.activationWebsite = "mail.example.org";
    mail.activationApplication = "org.gnome.Evolution";
    g.modesStore.saveModes({def, mail});
    g.modeManager->loadModes();
    g.modeManager->setActiveMode(def);
    g.queue.runUntilIdle();
    ModesViewModel modes(*g.modeManager);
    {
        Harness h;
        h.show<ModesView>(modes);
        EXPECT_TRUE(nonTrivialPng(desktop().screenshot("modes-list")));
    }
    FakeScreenCapture screenCapture;
    std::vector<InstalledApplication> apps = {{"org.gnome.Evolution", "Evolution"}, {"firefox-esr", "Firefox ESR"}};
    {
        ModeDetailViewModel vm({g.queue, *g.modeManager, g.files, screenCapture, apps}, mail);
        Harness h;
        auto& view = h.show<ModeDetailView>(vm);
        EXPECT_TRUE(nonTrivialPng(desktop().screenshot("mode-editor-filled")));
        auto* scroll = view.findChild<QScrollArea*>();
        ASSERT_NE(scroll, nullptr);
        scroll->verticalScrollBar()->setValue(scroll->verticalScrollBar()->maximum());
        EXPECT_TRUE(nonTrivialPng(desktop().screenshot("mode-editor-bottom")));
        scroll->verticalScrollBar()->setValue(0);
        vm.toggleDropdown();
        EXPECT_TRUE(nonTrivialPng(desktop().screenshot("mode-editor-type-list")));
    }
    {
        g.modeManager->createNewMode();
        ModeDetailViewModel vm({g.queue, *g.modeManager, g.files, screenCapture, apps}, *g.modeManager->selectedMode.get());
        Harness h;
        h.show<ModeDetailView>(vm);
        EXPECT_TRUE(nonTrivialPng(desktop().screenshot("mode-editor-new")));
    }
}

TEST_F(ScreensTest, TextSettingScreensRenderEmptyAndFilled) {
    Observable<std::vector<Replacement>> replacements;
    ReplacementsViewModel rvm(g.queue, replacements, g.files);
    {
        Harness h;
        h.show<ReplacementsView>(rvm);
        EXPECT_TRUE(nonTrivialPng(desktop().screenshot("replacements-empty")));
    }
    replacements.set(defaultTextReplacements());
    {
        Harness h;
        h.show<ReplacementsView>(rvm);
        EXPECT_TRUE(nonTrivialPng(desktop().screenshot("replacements-filled")));
        rvm.openEdit(replacements.get()[3].id);
        EXPECT_TRUE(nonTrivialPng(desktop().screenshot("replacements-drawer")));
        rvm.closeDrawer();
    }
    Observable<std::optional<std::string>> vocabulary;
    {
        // As the main window's factory builds a screen: the host owns the view-model.
        ScreenHost<VocabularyViewModel, VocabularyView> host(std::make_unique<VocabularyViewModel>(g.queue, vocabulary),
                                                            nullptr);
        host.setWindowFlag(Qt::FramelessWindowHint);
        host.setFixedSize(470, 600);
        host.move(180, 0);
        host.show();
        desktop().pumpUntil([&] { return host.isVisible(); }, 5);
        EXPECT_TRUE(nonTrivialPng(desktop().screenshot("vocabulary-empty")));
        host.viewModel().setText("typed");
        EXPECT_TRUE(host.viewModel().isDirty.get());
    }
    // The host flushed the pending edit when its view went away.
    EXPECT_EQ(vocabulary.get(), std::optional<std::string>("typed"));
    vocabulary.set(std::nullopt);
    vocabulary.set(std::string("Jane Roe, ACME Corp, Kubernetes, SaaS, c'est la vie"));
    {
        VocabularyViewModel vvm(g.queue, vocabulary);
        Harness h;
        h.show<VocabularyView>(vvm);
        EXPECT_TRUE(nonTrivialPng(desktop().screenshot("vocabulary-filled")));
    }
}

const char* const kNoPanelHelp =
    "Open your desktop's sound settings and check that a microphone is connected, chosen as the input device "
    "and "
    "not muted.";

TEST_F(ScreensTest, HomePermissionsSettingsAndHelpRender) {
    FakeCapture capture;
    FakeAccessibility accessibility;
    accessibility.setTrusted(false);
    SystemPermissionProbe probe(capture, accessibility);
    FakeUrlOpener urls;
    RecordingShortcuts shortcuts;
    Observable<std::optional<std::string>> vocabulary;
    Observable<int> tab{-1};
    {
        HomeViewModel vm({*g.modeManager, vocabulary, tab, g.files, probe, urls, shortcuts});
        Harness h;
        h.show<HomeView>(vm);
        EXPECT_TRUE(nonTrivialPng(desktop().screenshot("home-fresh")));
        vocabulary.set(std::string("ACME"));
        auto state = g.files.loadOnboardingState();
        state.hasAddedOrEditedReplacement = true;
        g.files.saveOnboardingState(state);
        vm.refresh();
        EXPECT_EQ(vm.progressText(), "3 of 6 complete");
        EXPECT_TRUE(nonTrivialPng(desktop().screenshot("home-progress")));
        // No settings panel on this desktop: the row says what to check.
        capture.soundServer = false;
        vm.refresh();
        urls.failWith = kNoPanelHelp;
        vm.activate(HomeViewModel::microphone);
        EXPECT_EQ(vm.openProblem.get(), urls.failWith);
        EXPECT_TRUE(nonTrivialPng(desktop().screenshot("home-no-panel")));
        urls.failWith.reset();
        capture.soundServer = true;
    }
    {
        PermissionsViewModel vm(g.queue, probe, urls);
        Harness h;
        h.show<PermissionsView>(vm);
        EXPECT_TRUE(nonTrivialPng(desktop().screenshot("permissions")));
        capture.soundServer = false;
        vm.refresh();
        urls.failWith = kNoPanelHelp;
        vm.enableMicrophone();
        EXPECT_EQ(vm.openProblem.get(), urls.failWith);
        EXPECT_TRUE(nonTrivialPng(desktop().screenshot("permissions-no-panel")));
        urls.failWith.reset();
        capture.soundServer = true;
    }
    {
        capture.deviceList = {{"alsa_input.usb-mic", "USB Microphone"}, {"alsa_input.pci-0000_00_1f.3.analog-stereo", "Built-in Audio Analog Stereo"}};
        auto s = g.files.loadSettings();
        s.useSystemDefaultAudio = false;
        s.inputDeviceName = "Jabra Headset";
        g.files.saveSettings(s);
        MapEnvironment env({{"HOME", (g.dir.path() / "home").string()}, {"XDG_CONFIG_HOME", (g.dir.path() / "config").string()}});
        AutostartEntry autostart(env, "/usr/bin/vocle");
        FakeLocalKeyMonitor keyMonitor;
        SettingsViewModel vm(g.files, capture, shortcuts, keyMonitor, autostart);
        Harness h;
        h.show<SettingsView>(vm);
        EXPECT_FALSE(vm.isLoading.get());
        EXPECT_TRUE(nonTrivialPng(desktop().screenshot("settings-disconnected-device")));
    }
    {
        // The desktop holds the toggle shortcut, and no sound server runs.
        shortcuts.toggleFailure = kHotKeyBusy;
        capture.soundServer = false;
        MapEnvironment env({{"HOME", (g.dir.path() / "home").string()},
                            {"XDG_CONFIG_HOME", (g.dir.path() / "config").string()}});
        AutostartEntry autostart(env, "/usr/bin/vocle");
        FakeLocalKeyMonitor keyMonitor;
        SettingsViewModel vm(g.files, capture, shortcuts, keyMonitor, autostart);
        Harness h;
        h.show<SettingsView>(vm);
        EXPECT_EQ(vm.inputAvailability.get(), InputAvailability::noSoundServer);
        EXPECT_TRUE(vm.toggleShortcutWarning());
        EXPECT_TRUE(nonTrivialPng(desktop().screenshot("settings-taken-shortcut-no-sound-server")));
        shortcuts.toggleFailure.reset();
        capture.soundServer = true;
    }
    {
        SupportService support(*g.backend);
        HelpViewModel vm(support, urls, "https://vocle.example/docs");
        Harness h;
        h.show<HelpView>(vm);
        EXPECT_TRUE(nonTrivialPng(desktop().screenshot("help-empty")));
        vm.setMessage("  ");
        vm.send();
        g.queue.runUntilIdle();
        EXPECT_TRUE(vm.errorMessage.get().has_value());
        EXPECT_TRUE(nonTrivialPng(desktop().screenshot("help-error")));
    }
}

TEST_F(ScreensTest, HistoryRendersEmptyAndKeepsThousandsOfEntriesInOneListView) {
    {
        HistoryService history(DataFolder{g.dir.path()}, g.queue);
        HistoryViewModel vm(g.queue, history, [](const std::string&) {});
        Harness h;
        h.show<HistoryView>(vm);
        EXPECT_TRUE(nonTrivialPng(desktop().screenshot("history-empty")));
    }
    Json list = Json::array();
    const double now = g.queue.now();
    const char* samples[] = {"Send the quarterly numbers to Dana before Friday and copy the finance team.",
                             "Remind me to water the plants.",
                             "Hi Sam, thanks for the quick turnaround on the review. Two small things: the "
                             "second chart needs a legend and the summary should mention the pilot customers."};
    for (int i = 0; i < 5000; ++i)
        list.push_back(TranscriptionHistory{Uuid::random(), samples[i % 3], now - 60 - i * 500.0}.toJson());
    const auto file = HistoryService(DataFolder{g.dir.path()}, g.queue).historyFile();
    ASSERT_TRUE(ensureDirectory(file.parent_path()));
    ASSERT_TRUE(writeFileAtomically(file, list.dump()));
    HistoryService history(DataFolder{g.dir.path()}, g.queue);
    ASSERT_EQ(history.transcriptions.get().size(), 5000u);
    std::vector<std::string> copied;
    HistoryViewModel vm(g.queue, history, [&](const std::string& t) { copied.push_back(t); });
    Harness h;
    auto& view = h.show<HistoryView>(vm);
    EXPECT_TRUE(nonTrivialPng(desktop().screenshot("history-filled")));

    QListView* list_view = view.listView();
    const int groups = static_cast<int>(vm.groups.get().size());
    EXPECT_EQ(list_view->model()->rowCount(), 5000 + groups);
    // Rows are painted, not built: the viewport holds only the pinned header.
    EXPECT_LE(list_view->viewport()->findChildren<QWidget*>().size(), 2);

    auto* bar = list_view->verticalScrollBar();
    bar->setValue(bar->maximum() / 2);
    desktop().pump(0.2);
    EXPECT_TRUE(nonTrivialPng(desktop().screenshot("history-scrolled")));
    bar->setValue(bar->maximum());
    desktop().pump(0.2);
    auto* pinned = list_view->viewport()->findChild<QLabel*>();
    ASSERT_NE(pinned, nullptr);
    EXPECT_TRUE(pinned->isVisible());
    EXPECT_EQ(pinned->text().toStdString(), vm.groups.get().back().label);

    // The copy button of the first entry, through a real click.
    bar->setValue(0);
    desktop().pump(0.1);
    const QRect first = list_view->visualRect(list_view->model()->index(1, 0));
    const QPoint click = list_view->viewport()->mapTo(&h.window(), QPoint(first.right() - 20, first.top() + 16));
    desktop().run("xdotool mousemove --sync " + std::to_string(click.x()) + " " + std::to_string(click.y()) + " click 1");
    ASSERT_TRUE(desktop().pumpUntil([&] { return !copied.empty(); }, 5));
    EXPECT_EQ(copied[0], samples[0]);
    EXPECT_TRUE(vm.isCopied(vm.groups.get()[0].entries[0].id));
    EXPECT_TRUE(nonTrivialPng(desktop().screenshot("history-copied")));
}

TEST_F(ScreensTest, PickerSheetsCaptureRealKeyPresses) {
    RecordingShortcuts shortcuts;
    // The application's in-window key monitor, seeing real X key events.
    x11::QtLocalKeyMonitor keyMonitor;
    {
        ShortcutPickerViewModel vm(shortcuts, keyMonitor);
        ShortcutPickerSheet sheet(vm, nullptr);
        sheet.move(100, 150);
        sheet.show();
        ASSERT_TRUE(desktop().activate(sheet));
        desktop().run("xdotool key --clearmodifiers a");
        desktop().pump(0.2);
        EXPECT_FALSE(vm.capturedKeyCode.get().has_value());
        desktop().run("xdotool key ctrl+k");
        ASSERT_TRUE(desktop().pumpUntil([&] { return vm.capturedKeyCode.get().has_value(); }, 5));
        EXPECT_EQ(vm.previewParts(), (std::vector<std::string>{"Ctrl", "K"}));
        EXPECT_TRUE(nonTrivialPng(desktop().screenshot("picker-toggle")));
        desktop().run("xdotool key Return");
        ASSERT_TRUE(desktop().pumpUntil([&] { return !sheet.isVisible(); }, 5));
        EXPECT_EQ(shortcuts.toggle, (KeyCombination{40, keys::kControl}));
        EXPECT_EQ(shortcuts.calls, (std::vector<std::string>{"setToggle", "save", "unregister", "register"}));
    }
    shortcuts.calls.clear();
    {
        CancelPickerViewModel vm(shortcuts, keyMonitor);
        CancelPickerSheet sheet(vm, nullptr);
        sheet.move(100, 150);
        sheet.show();
        ASSERT_TRUE(desktop().activate(sheet));
        desktop().run("xdotool key super+q");
        ASSERT_TRUE(desktop().pumpUntil([&] { return vm.capturedKeyCode.get() == std::optional<uint16_t>(12); }, 5));
        desktop().run("xdotool key Escape");
        ASSERT_TRUE(desktop().pumpUntil([&] { return vm.capturedKeyCode.get() == std::optional<uint16_t>(53); }, 5));
        EXPECT_TRUE(sheet.isVisible());
        EXPECT_TRUE(nonTrivialPng(desktop().screenshot("picker-cancel")));
        desktop().run("xdotool key Return");
        ASSERT_TRUE(desktop().pumpUntil([&] { return !sheet.isVisible(); }, 5));
        EXPECT_EQ(shortcuts.cancel, (KeyCombination{53, 0}));
    }
}

TEST_F(ScreensTest, ShortcutBoxIsAButtonToAssistiveTechnologyAndToTheKeyboard) {
    KeyCapsView box(nullptr, true);
    box.setAccessibleName("Toggle Recording On/Off");
    box.setParts({"Ctrl", "Alt", "Space"});
    int presses = 0;
    QObject::connect(&box, &KeyCapsView::clicked, [&] { ++presses; });
    box.move(100, 150);
    box.show();
    ASSERT_TRUE(desktop().activate(box));

    QAccessibleInterface* seen = QAccessible::queryAccessibleInterface(&box);
    ASSERT_NE(seen, nullptr);
    EXPECT_EQ(seen->role(), QAccessible::Button);
    EXPECT_EQ(seen->text(QAccessible::Name).toStdString(), "Toggle Recording On/Off");
    EXPECT_EQ(seen->text(QAccessible::Description).toStdString(), "Ctrl Alt Space");
    ASSERT_NE(seen->actionInterface(), nullptr);
    seen->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
    EXPECT_EQ(presses, 1);

    box.setFocus();
    desktop().run("xdotool key space");
    ASSERT_TRUE(desktop().pumpUntil([&] { return presses == 2; }, 5));
    // With a modifier it is somebody's shortcut, not a press of the box.
    desktop().run("xdotool key alt+space");
    desktop().pump(0.3);
    EXPECT_EQ(presses, 2);

    // The home screen's boxes only show a shortcut: text, no action.
    KeyCapsView shown;
    shown.setParts({"Ctrl", "Alt", "Space"});
    QAccessibleInterface* text = QAccessible::queryAccessibleInterface(&shown);
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(text->role(), QAccessible::StaticText);
    EXPECT_EQ(text->text(QAccessible::Name).toStdString(), "Ctrl Alt Space");
    EXPECT_FALSE(text->actionInterface()->actionNames().contains(QAccessibleActionInterface::pressAction()));
}

}  // namespace
