#include "ui/Theme.h"

#include <QApplication>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QIconEngine>
#include <QPainter>
#include <QPalette>
#include <QStyle>
#include <QSvgRenderer>
#include <QWidget>

#include <memory>

namespace vocle::ui::Theme {

namespace {

QString hex(const QColor& c) { return c.name(QColor::HexRgb); }

// Renders the SVG at the exact device size asked for, so the icon stays sharp on any scale factor.
class SvgIconEngine final : public QIconEngine {
public:
    SvgIconEngine(QString file, QColor tint, bool tinted)
        : file_(std::move(file)), tint_(std::move(tint)), tinted_(tinted), renderer_(std::make_shared<QSvgRenderer>(file_)) {}

    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State) override {
        painter->drawPixmap(rect, render(rect.size() * painter->device()->devicePixelRatioF(), mode));
    }
    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State) override { return render(size, mode); }
    QPixmap scaledPixmap(const QSize& size, QIcon::Mode mode, QIcon::State, qreal scale) override {
        QPixmap p = render(size * scale, mode);
        p.setDevicePixelRatio(scale);
        return p;
    }
    QIconEngine* clone() const override { return new SvgIconEngine(file_, tint_, tinted_); }
    QSize actualSize(const QSize& size, QIcon::Mode, QIcon::State) override { return size; }
    bool isNull() override { return !renderer_->isValid(); }

private:
    QPixmap render(const QSize& size, QIcon::Mode mode) {
        QImage image(size, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        {
            QPainter p(&image);
            p.setRenderHint(QPainter::Antialiasing);
            renderer_->render(&p, QRectF(QPointF(0, 0), QSizeF(size)));
            if (tinted_) {
                QColor c = tint_;
                if (mode == QIcon::Disabled) c.setAlphaF(0.35);
                p.setCompositionMode(QPainter::CompositionMode_SourceIn);
                p.fillRect(image.rect(), c);
            }
        }
        return QPixmap::fromImage(image);
    }

    QString file_;
    QColor tint_;
    bool tinted_;
    std::shared_ptr<QSvgRenderer> renderer_;
};

// Where icons may be, most specific first.
const QStringList& iconCandidates() {
    static const QStringList candidates = [] {
        QStringList c;
        if (const QByteArray env = qgetenv("VOCLE_DATA_DIR"); !env.isEmpty()) c << QString::fromLocal8Bit(env) + "/icons";
        const QString appDir = QCoreApplication::instance() ? QCoreApplication::applicationDirPath() : QString();
        if (!appDir.isEmpty()) c << appDir + "/../share/vocle/icons";
#ifdef VOCLE_INSTALL_DATADIR
        c << QString(VOCLE_INSTALL_DATADIR) + "/icons";
#endif
#ifdef VOCLE_SOURCE_DIR
        c << QString(VOCLE_SOURCE_DIR) + "/data/icons";
#endif
        return c;
    }();
    return candidates;
}

// The icon from the first place that has it: an older installation beside a build tree may lack newer ones.
QString iconFile(const QString& name) {
    const QString dir = iconDirectory();
    if (!dir.isEmpty() && QFileInfo::exists(dir + "/" + name + ".svg")) return dir + "/" + name + ".svg";
    for (const QString& c : iconCandidates())
        if (QFileInfo::exists(c + "/" + name + ".svg")) return QDir(c).absoluteFilePath(name + ".svg");
    return {};
}

}  // namespace

QString iconDirectory() {
    static const QString found = [] {
        for (const QString& c : iconCandidates())
            if (QFileInfo::exists(c + "/tray.svg")) return QDir(c).absolutePath();
        return QString();
    }();
    return found;
}

QIcon icon(const QString& name, const QColor& color) {
    const QString file = iconFile(name);
    if (file.isEmpty()) return {};
    return QIcon(new SvgIconEngine(file, color, true));
}

QIcon originalIcon(const QString& name) {
    const QString file = iconFile(name);
    if (file.isEmpty()) return {};
    return QIcon(new SvgIconEngine(file, QColor(), false));
}

void setRole(QWidget* widget, const char* role) {
    widget->setProperty("role", QString::fromLatin1(role));
    widget->style()->unpolish(widget);
    widget->style()->polish(widget);
}

namespace {

// A filled box alone does not read as "on", and a combo box without its arrow as a choice; the images
// say it. Appended apart: a path may hold a "%".
QString indicatorImages() {
    QString rules;
    if (const QString tick = iconFile("check"); !tick.isEmpty())
        rules += QStringLiteral("QCheckBox::indicator:checked { image: url(%1); }\n").arg(tick);
    if (const QString arrow = iconFile("chevron-down"); !arrow.isEmpty())
        rules += QStringLiteral("QComboBox::down-arrow { image: url(%1); width: 12px; height: 12px; }\n").arg(arrow);
    return rules;
}

}  // namespace

QString styleSheet() {
    const QString accentPressed = hex(kAccent.darker(120));
    const QString accentHover = hex(kAccent.lighter(112));
    return QStringLiteral(R"(
QWidget { color: %1; font-size: 13px; }
QMainWindow, QDialog, #MainView, #DetailArea { background: %2; }
QToolTip { background: %3; color: %1; border: 1px solid %4; padding: 4px; }

QLabel[role="title"] { font-size: 22px; font-weight: 600; }
QLabel[role="headline"] { font-size: 15px; font-weight: 600; }
QLabel[role="secondary"] { color: %5; }
QLabel[role="caption"] { color: %5; font-size: 11px; }
QLabel[role="error"] { color: %6; }
QLabel[role="success"] { color: %7; }
QLabel[role="warning"] { color: #ffb340; font-size: 12px; }

QPushButton { background: %3; border: 1px solid %4; border-radius: 6px; padding: 5px 14px; min-height: 18px; }
QPushButton:hover { background: %4; }
QPushButton:pressed { background: %2; }
QPushButton:disabled { color: %5; background: %3; }
QPushButton:focus { border-color: %8; }
QPushButton[role="primary"] { background: %8; border: 1px solid %8; color: white; font-weight: 600; }
QPushButton[role="primary"]:hover { background: %9; border-color: %9; }
QPushButton[role="primary"]:pressed { background: %10; }
QPushButton[role="primary"]:disabled { background: %4; border-color: %4; color: %5; }
QPushButton[role="destructive"] { color: %6; }
QPushButton[role="link"] { background: transparent; border: none; color: %8; padding: 2px 0; text-align: left; }
QPushButton[role="link"]:hover { text-decoration: underline; }
QPushButton[role="plain"] { background: transparent; border: none; padding: 2px; }
QPushButton[role="plain"]:hover { background: rgba(255,255,255,0.08); }

QLabel[role="subtitle"] { color: %5; }
QLabel[role="sectionTitle"] { font-size: 13px; font-weight: 600; color: #c7c7cc; margin-top: 6px; }
QLabel[role="fieldLabel"], QLabel[role="columnHeader"] { color: %5; font-size: 12px; }
QLabel[role="columnHeader"] { font-weight: 600; }
QLabel[role="rowTitle"] { font-weight: 500; }
QLabel[role="emptyTitle"] { font-size: 16px; font-weight: 600; }
QLabel[role="done"] { color: %5; }
QLabel[role="badge"] { background: rgba(102,92,210,0.30); color: #b3adf5; border-radius: 8px; padding: 2px 8px;
                       font-size: 11px; }
QLabel[role="pinnedHeader"] { background: %2; }
QLabel[role="checkbox"] { border: 1.5px solid #6e6e73; border-radius: 5px; }
QLabel[role="checkbox"][completed="true"] { background: %8; border-color: %8; }

QFrame[role="card"] { background: %3; border: 1px solid %4; border-radius: 12px; }
QFrame[role="drawer"] { background: %3; border-left: 1px solid %4; }
QFrame[role="dropdownList"] { background: %3; border: 1px solid %4; border-radius: 8px; }
QFrame[role="listRow"], QFrame[role="tableRow"], QFrame[role="checkRow"] { border-radius: 8px; background: transparent;
                                                                           border: none; }
QFrame[role="listRow"]:hover, QFrame[role="tableRow"]:hover, QFrame[role="checkRow"][clickable="true"]:hover {
    background: rgba(255,255,255,0.06); }
QFrame[role="listRow"][selected="true"] { background: rgba(102,92,210,0.25); }
QPushButton[role="iconButton"] { background: transparent; border: none; padding: 0; }
QPushButton[role="iconButton"]:hover { background: rgba(255,255,255,0.08); }
QPushButton[role="dropdown"] { text-align: left; padding: 6px 10px; }
QProgressBar { background: %4; border: none; border-radius: 4px; max-height: 8px; text-align: center; }
QProgressBar::chunk { background: %8; border-radius: 4px; }
QFrame[role="separator"] { background: %4; max-height: 1px; min-height: 1px; border: none; }
QWidget[role="overlay"] { background: %2; }
QWidget[role="sidebar"], #Sidebar { background: %3; border-right: 1px solid %4; }

QToolButton[role="sidebarItem"] { background: transparent; border: none; border-radius: 12px; padding: 4px 6px;
                                  text-align: left; font-size: 13px; }
QToolButton[role="sidebarItem"]:hover { background: rgba(102,92,210,0.12); }
QToolButton[role="sidebarItem"]:checked { background: rgba(102,92,210,0.25); }
QToolButton { background: transparent; border: none; border-radius: 6px; padding: 4px; }
QToolButton:hover { background: rgba(255,255,255,0.08); }

QLineEdit, QTextEdit, QPlainTextEdit, QSpinBox, QComboBox {
    background: %2; border: 1px solid %4; border-radius: 6px; padding: 5px 8px; selection-background-color: %8; }
QLineEdit:focus, QTextEdit:focus, QPlainTextEdit:focus, QSpinBox:focus, QComboBox:focus { border-color: %8; }
QLineEdit:disabled, QTextEdit:disabled { color: %5; }
QComboBox::drop-down { border: none; width: 18px; }
QComboBox QAbstractItemView { background: %3; border: 1px solid %4; selection-background-color: %8; }
QCheckBox { spacing: 8px; }
QCheckBox::indicator { width: 16px; height: 16px; border: 1px solid %4; border-radius: 4px; background: %2; }
QCheckBox::indicator:checked { background: %8; border-color: %8; }

QListView, QListWidget, QTreeView, QTableView, QTableWidget {
    background: %2; border: 1px solid %4; border-radius: 8px; alternate-background-color: %3; }
QListView::item, QListWidget::item { padding: 6px; border-radius: 6px; }
QListView#historyList { border: none; }
QListView::item:selected, QListWidget::item:selected { background: rgba(102,92,210,0.35); color: %1; }
QHeaderView::section { background: %3; color: %5; border: none; padding: 4px 6px; }

QScrollArea { background: transparent; border: none; }
QScrollArea > QWidget > QWidget { background: transparent; }
QScrollBar:vertical { background: transparent; width: 10px; margin: 0; }
QScrollBar::handle:vertical { background: %4; border-radius: 5px; min-height: 24px; }
QScrollBar::add-line, QScrollBar::sub-line { height: 0; width: 0; }
QScrollBar:horizontal { background: transparent; height: 10px; }
QScrollBar::handle:horizontal { background: %4; border-radius: 5px; min-width: 24px; }

QMenuBar { background: %3; }
QMenuBar::item:selected { background: %4; }
QMenu { background: %3; border: 1px solid %4; padding: 4px; }
QMenu::item { padding: 5px 24px 5px 12px; border-radius: 4px; }
QMenu::item:selected { background: %8; color: white; }
QMenu::item:disabled { color: %5; }
QMenu::separator { height: 1px; background: %4; margin: 4px 6px; }
)")
               .arg(hex(kText), hex(kWindow), hex(kSurface), hex(kBorder), hex(kSecondaryText), hex(kRed),
                    hex(kGreen), hex(kAccent), accentHover)
               .arg(accentPressed) +
           indicatorImages();
}

void apply(QApplication& app) {
    app.setStyle("Fusion");
    QPalette p;
    p.setColor(QPalette::Window, kWindow);
    p.setColor(QPalette::WindowText, kText);
    p.setColor(QPalette::Base, kWindow);
    p.setColor(QPalette::AlternateBase, kSurface);
    p.setColor(QPalette::ToolTipBase, kSurface);
    p.setColor(QPalette::ToolTipText, kText);
    p.setColor(QPalette::PlaceholderText, kSecondaryText);
    p.setColor(QPalette::Text, kText);
    p.setColor(QPalette::Button, kSurface);
    p.setColor(QPalette::ButtonText, kText);
    p.setColor(QPalette::BrightText, kRed);
    p.setColor(QPalette::Highlight, kAccent);
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::Link, kAccent);
    p.setColor(QPalette::Light, kSurfaceRaised);
    p.setColor(QPalette::Mid, kBorder);
    p.setColor(QPalette::Dark, kWindow.darker(130));
    for (auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        p.setColor(QPalette::Disabled, role, kSecondaryText);
    app.setPalette(p);
    app.setStyleSheet(styleSheet());
}

}  // namespace vocle::ui::Theme
