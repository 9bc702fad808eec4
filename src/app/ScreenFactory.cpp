#include "app/ScreenFactory.h"

#include "screens/HelpViewModel.h"
#include "screens/HistoryViewModel.h"
#include "screens/HomeViewModel.h"
#include "screens/PermissionsViewModel.h"
#include "screens/ReplacementsViewModel.h"
#include "screens/SettingsViewModel.h"
#include "screens/VocabularyViewModel.h"
#include "ui/screens/HelpView.h"
#include "ui/screens/HistoryView.h"
#include "ui/screens/HomeView.h"
#include "ui/screens/ModeDetailView.h"
#include "ui/screens/ModesView.h"
#include "ui/screens/PermissionsView.h"
#include "ui/screens/ReplacementsView.h"
#include "ui/screens/SettingsView.h"
#include "ui/screens/VocabularyView.h"

#include <QObject>

namespace vocle::app {

namespace {

// The view model lives exactly as long as its widget.
template <class View, class Model>
QWidget* own(std::unique_ptr<Model> model, QWidget* parent) {
    auto* view = new View(*model, parent);
    QObject::connect(view, &QObject::destroyed, [m = model.release()] { delete m; });
    return view;
}

}  // namespace

ScreenServices::ScreenServices(DictationApp& a, LocalKeyMonitor& keys, Pasteboard& board,
                               std::vector<InstalledApplication> apps, std::string executable)
    : app(a),
      localKeyMonitor(keys),
      pasteboard(board),
      installedApplications(std::move(apps)),
      permissions(a.graph().services.capture, a.graph().services.accessibility),
      shortcuts(*a.graph().shortcuts),
      autostart(a.graph().services.environment, executable),
      cliProgram(locateVocleCli(executable, a.graph().services.environment)) {}

ui::ScreenFactory makeScreenFactory(ScreenServices& s) {
    return [&s](const ui::DetailScreen& screen, QWidget* parent) -> QWidget* {
        ClientGraph& g = s.app.graph();
        AppState& state = g.state();
        MainQueue& main = g.mainQueue();
        using Kind = ui::DetailScreen::Kind;
        switch (screen.kind) {
            case Kind::home:
                return own<HomeView>(std::make_unique<HomeViewModel>(HomeDependencies{
                                         *g.modeManager, state.vocabulary, state.selectedTab, g.files,
                                         s.permissions, g.services.urlOpener, s.shortcuts, s.remoteInput}),
                                     parent);
            case Kind::modes:
                // The list's model belongs to the application state.
                return new ModesView(state.modesViewModel(), parent);
            case Kind::modeDetail:
                if (!screen.mode) return nullptr;
                return own<ModeDetailView>(
                    std::make_unique<ModeDetailViewModel>(
                        ModeDetailDependencies{main, *g.modeManager, g.files, g.services.screenCapture,
                                               s.installedApplications},
                        *screen.mode),
                    parent);
            case Kind::replacements:
                return own<ReplacementsView>(
                    std::make_unique<ReplacementsViewModel>(main, state.replacements, g.files), parent);
            case Kind::vocabulary:
                return own<VocabularyView>(std::make_unique<VocabularyViewModel>(main, state.vocabulary),
                                           parent);
            case Kind::settings: {
                auto model = std::make_unique<SettingsViewModel>(g.files, g.services.capture, s.shortcuts,
                                                                 s.localKeyMonitor, s.autostart);
                auto compositor = s.compositorShortcuts;
                if (!s.cliProgram.empty()) compositor.cliProgram = s.cliProgram;
                // Known once the desktop has answered for the cancel key (at the first recording).
                if (!g.shortcuts->cancelReachesAllApplications()) compositor.cancelFromTrayOnly = true;
                model->setCompositorShortcuts(std::move(compositor));
                model->takePickerRequest = [&s] { return s.app.takeShortcutPickerRequest(); };
                model->pickerRequests =
                    s.app.shortcutPickerRequested.subscribe([vm = model.get()] { vm->checkPickerRequest(); });
                return own<SettingsView>(std::move(model), parent);
            }
            case Kind::history:
                return own<HistoryView>(
                    std::make_unique<HistoryViewModel>(
                        main, g.history, [&s](const std::string& text) { s.pasteboard.setString(text); },
                        HistoryViewModel::KeptDictations{
                            &g.pendingDictations,
                            [&g](const Uuid& id, std::function<void(bool)> done) {
                                g.dictationRetry->retry(id, [done](Result<std::string> r) { done(r.ok()); });
                            },
                            [&g](const Uuid& id) { g.dictationRetry->drop(id); }}),
                    parent);
            case Kind::help:
                return own<HelpView>(
                    std::make_unique<HelpViewModel>(*g.support, g.services.urlOpener, g.docsURL()), parent);
            case Kind::permissions:
                return own<PermissionsView>(std::make_unique<PermissionsViewModel>(
                                                main, s.permissions, g.services.urlOpener, s.remoteInput),
                                            parent);
        }
        return nullptr;
    };
}

}  // namespace vocle::app
