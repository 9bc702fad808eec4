#pragma once

#include "application/DictationApp.h"
#include "screens/SignInViewModel.h"
#include "core/Mode.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <QMainWindow>

class QAction;
class QButtonGroup;
class QDialog;
class QToolButton;
class QVBoxLayout;

namespace vocle::ui {

class LoadingOverlay;
class SignInOverlay;

// Which screen the detail area shows.
struct DetailScreen {
    enum class Kind { home, modes, modeDetail, replacements, vocabulary, settings, history, help, permissions };
    Kind kind = Kind::home;
    int tab = -1;
    std::optional<Mode> mode;  // with modeDetail: the mode being edited
};

// Makes the widget for a screen (the screens' XView(viewModel&, parent)); null falls back to a placeholder.
using ScreenFactory = std::function<QWidget*(const DetailScreen& screen, QWidget* parent)>;

// The main window: a 180 px sidebar of seven screens, the selected screen beside it, and the sign-in and
// loading overlays over both. Closing it keeps the application running.
class MainView final : public QMainWindow {
    Q_OBJECT
public:
    struct SidebarEntry {
        const char* title;
        const char* icon;
        int value;
    };
    static const std::vector<SidebarEntry>& sidebarEntries();
    static constexpr int kWidth = 650;
    static constexpr int kHeight = 600;
    static constexpr int kSidebarWidth = 180;

    MainView(DictationApp& app, ScreenFactory factory, std::function<std::optional<std::string>()> clipboardText,
             QWidget* parent = nullptr);
    ~MainView() override;

    bool isSidebarVisible() const { return sidebarVisible_; }
    void toggleSidebar();
    // The current detail screen, for tests.
    const DetailScreen& detailScreen() const { return current_; }
    QWidget* detailWidget() const { return detailWidget_; }
    QWidget* sidebar() const { return sidebar_; }
    SignInOverlay* signInOverlay() const { return signIn_; }
    LoadingOverlay* loadingOverlay() const { return loading_; }
    QAction* cancelRecordingAction() const { return cancelAction_; }
    QToolButton* sidebarButton(int value) const;

protected:
    void showEvent(QShowEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void buildMenus();
    void buildSidebar();
    void evaluateDetail();
    void showDetail(const DetailScreen& screen);
    void updateOverlays();
    void updatePermissionsSheet();
    QWidget* placeholder(const DetailScreen& screen, QWidget* parent);

    DictationApp& app_;
    ScreenFactory factory_;
    std::function<std::optional<std::string>()> clipboardText_;
    QWidget* root_ = nullptr;
    QWidget* sidebar_ = nullptr;
    QWidget* detailArea_ = nullptr;
    QVBoxLayout* detailLayout_ = nullptr;
    QWidget* detailWidget_ = nullptr;
    QButtonGroup* sidebarGroup_ = nullptr;
    std::map<int, QToolButton*> sidebarButtons_;
    QAction* cancelAction_ = nullptr;
    QAction* sidebarAction_ = nullptr;
    bool sidebarVisible_ = true;
    DetailScreen current_;
    bool hasDetail_ = false;
    std::unique_ptr<SignInViewModel> signInModel_;
    SignInOverlay* signIn_ = nullptr;
    LoadingOverlay* loading_ = nullptr;
    QDialog* permissionsSheet_ = nullptr;
    std::string shownOverlay_;
    std::vector<Subscription> subscriptions_;
};

}  // namespace vocle::ui
