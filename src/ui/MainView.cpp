#include "ui/MainView.h"

#include <QAction>
#include <QButtonGroup>
#include <QCloseEvent>
#include <QDialog>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QLabel>
#include <QMenuBar>
#include <QPushButton>
#include <QToolBar>
#include <QToolButton>
#include <QVBoxLayout>

#include "core/AppConstants.h"
#include "foundation/Log.h"
#include "ui/LoadingOverlay.h"
#include "ui/SignInOverlay.h"
#include "ui/Theme.h"

namespace vocle::ui {

namespace {
constexpr int kSidebarTopPadding = 10;
constexpr int kItemVerticalPadding = 4;
constexpr int kItemHorizontalPadding = 6;

std::string idText(const std::optional<Mode>& mode) { return mode ? mode->id.string() : "nil"; }
}  // namespace

const std::vector<MainView::SidebarEntry>& MainView::sidebarEntries() {
    static const std::vector<SidebarEntry> entries{
        {"Home", "house", Tab::home},          {"Modes", "modes", Tab::modes},
        {"Replacements", "replacements", Tab::replacements}, {"Vocabulary", "vocabulary", Tab::vocabulary},
        {"Settings", "settings", Tab::settings}, {"History", "history", Tab::history},
        {"Help", "help", Tab::help}};
    return entries;
}

MainView::MainView(DictationApp& app, ScreenFactory factory, std::function<std::optional<std::string>()> clipboardText,
                   QWidget* parent)
    : QMainWindow(parent, Qt::Window | Qt::WindowTitleHint | Qt::WindowSystemMenuHint | Qt::WindowMinimizeButtonHint |
                              Qt::WindowCloseButtonHint),
      app_(app), factory_(std::move(factory)), clipboardText_(std::move(clipboardText)) {
    setObjectName("MainWindow");
    setWindowTitle("Vocle");
    setWindowIcon(Theme::originalIcon("vocle"));
    // No zoom, no full screen, no resizing by dragging: the window is as large as its content.
    setFixedSize(kWidth, kHeight);

    root_ = new QWidget(this);
    root_->setObjectName("MainView");
    setCentralWidget(root_);
    root_->installEventFilter(this);
    auto* columns = new QHBoxLayout(root_);
    columns->setContentsMargins(0, 0, 0, 0);
    columns->setSpacing(0);

    buildSidebar();
    columns->addWidget(sidebar_);

    detailArea_ = new QWidget(root_);
    detailArea_->setObjectName("DetailArea");
    detailLayout_ = new QVBoxLayout(detailArea_);
    detailLayout_->setContentsMargins(0, 0, 0, 0);
    columns->addWidget(detailArea_, 1);

    buildMenus();

    AppState& state = app_.appState();
    auto reevaluate = [this](const auto&) { evaluateDetail(); };
    subscriptions_.push_back(state.selectedTab.subscribe(reevaluate));
    subscriptions_.push_back(state.modesViewModel().isEditingMode.subscribe(reevaluate));
    subscriptions_.push_back(state.modesViewModel().selectedMode.subscribe(reevaluate));
    auto overlays = [this](const auto&) { updateOverlays(); };
    subscriptions_.push_back(state.requiresSignIn.subscribe(overlays));
    subscriptions_.push_back(state.isInitializing.subscribe(overlays));
    subscriptions_.push_back(state.initializationError.subscribe(overlays));
    subscriptions_.push_back(state.isRecording.subscribe([this](const bool& recording) {
        cancelAction_->setEnabled(recording);
    }));
    subscriptions_.push_back(app_.showPermissionsWindow.subscribe([this](const bool&) { updatePermissionsSheet(); }));

    evaluateDetail();
    updateOverlays();
}

MainView::~MainView() = default;

void MainView::buildMenus() {
    // The toolbar's only item: the sidebar toggle.
    auto* toolbar = addToolBar("Navigation");
    toolbar->setObjectName("NavigationToolBar");
    toolbar->setMovable(false);
    toolbar->setFloatable(false);
    toolbar->toggleViewAction()->setVisible(false);
    toolbar->setIconSize(QSize(18, 18));
    sidebarAction_ = toolbar->addAction(Theme::icon("sidebar"), "Toggle Sidebar");
    sidebarAction_->setObjectName("ToggleSidebar");
    sidebarAction_->setToolTip("Toggle Sidebar (Ctrl+S)");
    sidebarAction_->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_S));
    sidebarAction_->setShortcutContext(Qt::WindowShortcut);
    connect(sidebarAction_, &QAction::triggered, this, &MainView::toggleSidebar);

    auto* dictation = menuBar()->addMenu("Dictation");
    dictation->setObjectName("DictationMenu");
    dictation->addAction("Toggle Recording", this, [this] { app_.menuToggleRecording(); });
    cancelAction_ = dictation->addAction("Cancel Recording", this, [this] { app_.menuCancelRecording(); });
    cancelAction_->setEnabled(app_.canCancelRecording());
    dictation->addSeparator();
    dictation->addAction("Show Permissions", this, [this] { app_.menuShowPermissions(); });
    dictation->addSeparator();
    dictation->addAction("Check for Updates…", this, [this] { app_.menuCheckForUpdates(); });
    dictation->addSeparator();
    dictation->addAction("Sign Out", this, [this] { app_.menuSignOut(); });

    auto* help = menuBar()->addMenu("Help");
    help->addAction("Open Docs", this, [this] { app_.graph().services.urlOpener.openURL(app_.graph().docsURL()); });
}

void MainView::buildSidebar() {
    sidebar_ = new QWidget(root_);
    sidebar_->setObjectName("Sidebar");
    sidebar_->setAttribute(Qt::WA_StyledBackground);
    Theme::setRole(sidebar_, "sidebar");
    sidebar_->setFixedWidth(kSidebarWidth);
    auto* layout = new QVBoxLayout(sidebar_);
    layout->setContentsMargins(8, kSidebarTopPadding, 8, 8);
    layout->setSpacing(2);
    sidebarGroup_ = new QButtonGroup(sidebar_);
    sidebarGroup_->setExclusive(true);
    for (const auto& entry : sidebarEntries()) {
        auto* row = new QToolButton(sidebar_);
        row->setObjectName(QString("SidebarItem_") + entry.title);
        Theme::setRole(row, "sidebarItem");
        row->setText(entry.title);
        row->setIcon(Theme::icon(entry.icon, Theme::kText));
        row->setIconSize(QSize(18, 18));
        row->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
        row->setCheckable(true);
        row->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
        row->setMinimumHeight(18 + 2 * kItemVerticalPadding + 8);
        row->setContentsMargins(kItemHorizontalPadding, kItemVerticalPadding, kItemHorizontalPadding,
                                kItemVerticalPadding);
        row->setCursor(Qt::PointingHandCursor);
        // Button-group ids cannot be -1 (Home's value), so rows are found by value in our own map.
        sidebarGroup_->addButton(row);
        sidebarButtons_[entry.value] = row;
        const int value = entry.value;
        connect(row, &QToolButton::clicked, this, [this, value] { app_.appState().selectedTab.set(value); });
        layout->addWidget(row);
    }
    layout->addStretch();
}

QToolButton* MainView::sidebarButton(int value) const {
    auto it = sidebarButtons_.find(value);
    return it == sidebarButtons_.end() ? nullptr : it->second;
}

void MainView::toggleSidebar() {
    sidebarVisible_ = !sidebarVisible_;
    sidebar_->setVisible(sidebarVisible_);
}

void MainView::evaluateDetail() {
    AppState& state = app_.appState();
    const int tab = state.selectedTab.get();
    const bool editing = state.modesViewModel().isEditingMode.get();
    const auto& selected = state.modesViewModel().selectedMode.get();
    log("MainView Detail: Tab=", tab, ", Editing=", boolText(editing), ", SelectedID=", idText(selected));
    if (auto* button = sidebarButton(tab)) button->setChecked(true);
    else if (auto* checked = sidebarGroup_->checkedButton()) {
        sidebarGroup_->setExclusive(false);
        checked->setChecked(false);
        sidebarGroup_->setExclusive(true);
    }

    DetailScreen screen;
    screen.tab = tab;
    switch (tab) {
        case Tab::home: screen.kind = DetailScreen::Kind::home; break;
        case Tab::replacements: screen.kind = DetailScreen::Kind::replacements; break;
        case Tab::vocabulary: screen.kind = DetailScreen::Kind::vocabulary; break;
        case Tab::settings: screen.kind = DetailScreen::Kind::settings; break;
        case Tab::history: screen.kind = DetailScreen::Kind::history; break;
        case Tab::help: screen.kind = DetailScreen::Kind::help; break;
        default: {
            const std::string prefix = tab == Tab::modes ? "MainView Detail Case 0:" : "MainView Detail Default Case:";
            log(prefix, " Editing=", boolText(editing), ", SelectedID=", idText(selected));
            if (editing && selected) {
                log(prefix, " Showing ModeDetailView for ID ", selected->id.string());
                screen.kind = DetailScreen::Kind::modeDetail;
                screen.mode = selected;
            } else {
                log(prefix, " Showing ModesView");
                screen.kind = DetailScreen::Kind::modes;
            }
        }
    }
    showDetail(screen);
}

void MainView::showDetail(const DetailScreen& screen) {
    const bool same = hasDetail_ && screen.kind == current_.kind &&
                      (screen.kind != DetailScreen::Kind::modeDetail || idText(screen.mode) == idText(current_.mode));
    current_ = screen;
    if (same) return;
    hasDetail_ = true;
    if (detailWidget_) {
        detailLayout_->removeWidget(detailWidget_);
        detailWidget_->deleteLater();
    }
    QWidget* widget = factory_ ? factory_(screen, detailArea_) : nullptr;
    if (!widget) widget = placeholder(screen, detailArea_);
    detailWidget_ = widget;
    detailLayout_->addWidget(widget);
}

QWidget* MainView::placeholder(const DetailScreen& screen, QWidget* parent) {
    auto* page = new QWidget(parent);
    page->setObjectName("PlaceholderScreen");
    auto* layout = new QVBoxLayout(page);
    layout->setContentsMargins(28, 24, 28, 24);
    layout->setSpacing(10);
    QString title;
    for (const auto& e : sidebarEntries())
        if (e.value == screen.tab) title = e.title;
    if (screen.kind == DetailScreen::Kind::modes || screen.kind == DetailScreen::Kind::modeDetail) title = "Modes";
    if (screen.kind == DetailScreen::Kind::permissions) title = "Permissions";
    auto* heading = new QLabel(title, page);
    Theme::setRole(heading, "title");
    layout->addWidget(heading);
    if (screen.kind == DetailScreen::Kind::help) {
        auto* line = new QLabel("Guides for modes, shortcuts and the server live in the documentation.", page);
        Theme::setRole(line, "secondary");
        line->setWordWrap(true);
        layout->addWidget(line);
        auto* docs = new QPushButton("Open Docs", page);
        docs->setObjectName("OpenDocsButton");
        Theme::setRole(docs, "primary");
        connect(docs, &QPushButton::clicked, page,
                [this] { app_.graph().services.urlOpener.openURL(app_.graph().docsURL()); });
        layout->addWidget(docs, 0, Qt::AlignLeft);
    } else if (screen.kind == DetailScreen::Kind::home) {
        auto* line = new QLabel("Press your dictation shortcut anywhere, speak, and press it again.", page);
        Theme::setRole(line, "secondary");
        line->setWordWrap(true);
        layout->addWidget(line);
    }
    layout->addStretch();
    return page;
}

void MainView::updateOverlays() {
    AppState& state = app_.appState();
    const char* overlay = state.requiresSignIn.get()   ? "sign-in"
                          : state.isInitializing.get() ? (state.initializationError.get() ? "failure" : "loading")
                                                       : "none";
    if (overlay != shownOverlay_) {
        shownOverlay_ = overlay;
        log("MainView overlay: ", overlay);
    }
    if (state.requiresSignIn.get()) {
        if (!signInModel_) {
            signInModel_ = std::make_unique<SignInViewModel>(app_.graph().mainQueue(), *app_.graph().backend,
                                                             app_.graph().sessions);
            signIn_ = new SignInOverlay(*signInModel_, clipboardText_, root_);
            signIn_->setGeometry(root_->rect());
            signIn_->show();
            signIn_->raise();
            signIn_->emailField()->setFocus();
        }
        if (loading_) loading_->hide();
        return;
    }
    if (signIn_) {
        signIn_->hide();
        signIn_->deleteLater();
        signIn_ = nullptr;
        // After the widget: it draws the model until it is gone.
        auto* model = signInModel_.release();
        app_.graph().mainQueue().post([model] { delete model; });
    }
    if (state.isInitializing.get()) {
        if (!loading_) {
            loading_ = new LoadingOverlay([this] { app_.appState().retryInitialization(); }, root_);
        }
        loading_->setError(state.initializationError.get());
        loading_->setGeometry(root_->rect());
        loading_->show();
        loading_->raise();
    } else if (loading_) {
        loading_->hide();
    }
}

void MainView::updatePermissionsSheet() {
    if (!app_.showPermissionsWindow.get()) {
        if (permissionsSheet_) permissionsSheet_->hide();
        return;
    }
    if (!permissionsSheet_) {
        permissionsSheet_ = new QDialog(this, Qt::Sheet | Qt::Dialog);
        permissionsSheet_->setObjectName("PermissionsSheet");
        permissionsSheet_->setWindowTitle("Permissions");
        permissionsSheet_->setFixedSize(520, 460);
        // The screen brings its own margins; the button row repeats them so that both right edges meet.
        auto* layout = new QVBoxLayout(permissionsSheet_);
        layout->setContentsMargins(0, 0, 0, 0);
        layout->setSpacing(0);
        DetailScreen screen;
        screen.kind = DetailScreen::Kind::permissions;
        screen.tab = -1;
        QWidget* content = factory_ ? factory_(screen, permissionsSheet_) : nullptr;
        if (!content) content = placeholder(screen, permissionsSheet_);
        layout->addWidget(content, 1);
        auto* close = new QPushButton("Close", permissionsSheet_);
        close->setObjectName("PermissionsClose");
        Theme::setRole(close, "primary");
        auto* buttons = new QHBoxLayout;
        buttons->setContentsMargins(28, 0, 28, 20);
        buttons->addStretch();
        buttons->addWidget(close);
        layout->addLayout(buttons);
        connect(close, &QPushButton::clicked, this, [this] { app_.showPermissionsWindow.set(false); });
        connect(permissionsSheet_, &QDialog::rejected, this, [this] {
            if (app_.showPermissionsWindow.get()) app_.showPermissionsWindow.set(false);
        });
    }
    permissionsSheet_->show();
    permissionsSheet_->raise();
}

void MainView::showEvent(QShowEvent* event) {
    QMainWindow::showEvent(event);
    if (!event->spontaneous()) app_.mainViewAppeared();
}

void MainView::closeEvent(QCloseEvent* event) {
    // Closing only hides the window; dictation, shortcuts, tray and indicator keep running.
    app_.mainViewDisappeared();
    event->accept();
}

bool MainView::eventFilter(QObject* watched, QEvent* event) {
    if (watched == root_ && event->type() == QEvent::Resize) {
        if (signIn_) signIn_->setGeometry(root_->rect());
        if (loading_) loading_->setGeometry(root_->rect());
    }
    return QMainWindow::eventFilter(watched, event);
}

void MainView::resizeEvent(QResizeEvent* event) {
    QMainWindow::resizeEvent(event);
    if (signIn_) signIn_->setGeometry(root_->rect());
    if (loading_) loading_->setGeometry(root_->rect());
}

}  // namespace vocle::ui
