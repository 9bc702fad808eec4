#pragma once

// The application's dark look, applied once to the whole QApplication (palette + style sheet), so that
// screens only name what a widget is and never style it themselves.
//
// Roles: set the dynamic property "role" (Theme::setRole(widget, "…")) to one of
//   QLabel       "title"       large semibold heading (22 px)
//                "headline"    section heading (15 px, semibold)
//                "secondary"   gray body text
//                "caption"     small gray text (11 px)
//                "error"       red text (validation and failure lines)
//                "success"     green text
//   QPushButton  "primary"     filled accent button (the one main action of a screen or sheet)
//                "destructive" red text button (delete, sign out)
//                "link"        borderless accent text button
//                "plain"       borderless, no background (icon buttons, rows)
//   QFrame       "card"        rounded raised surface grouping related controls (12 px radius)
//                "separator"   1 px divider line
//   QWidget      "overlay"     full-window dimmed cover (loading, sign-in)
//                "sidebar"     the main window's navigation column
//   QToolButton  "sidebarItem" a navigation row; checked = selected
// Roles the screens use as well (src/ui/screens):
//   QLabel       "subtitle", "sectionTitle", "fieldLabel", "columnHeader", "rowTitle", "emptyTitle",
//                "done", "badge", "pinnedHeader", "checkbox" (property completed=true fills it)
//   QFrame       "drawer", "dropdownList", "listRow"/"tableRow"/"checkRow" (hover; listRow selected=true;
//                checkRow clickable=true)
//   QPushButton  "iconButton", "dropdown"
// Object names used by the main window: "MainView", "Sidebar", "DetailArea", "SignInOverlay",
// "LoadingOverlay". Input widgets (QLineEdit, QTextEdit, QComboBox, QCheckBox, QSpinBox, lists, tables,
// scroll areas) are styled without a role. Colours are available as constants for custom painting.

#include <QColor>
#include <QIcon>
#include <QString>

class QApplication;
class QWidget;

namespace vocle::ui {

namespace Theme {

inline const QColor kWindow{0x1c, 0x1c, 0x1e};
inline const QColor kSurface{0x2c, 0x2c, 0x2e};
inline const QColor kSurfaceRaised{0x3a, 0x3a, 0x3c};
inline const QColor kBorder{0x48, 0x48, 0x4a};
inline const QColor kText{0xf2, 0xf2, 0xf7};
inline const QColor kSecondaryText{0x8e, 0x8e, 0x93};
// The accent: sRGB 0.4, 0.36, 0.82, shared with the recording indicator's bars.
inline const QColor kAccent{0x66, 0x5c, 0xd2};
inline const QColor kRed{0xff, 0x45, 0x3a};
inline const QColor kGreen{0x32, 0xd7, 0x4b};

// Palette, fonts and style sheet for the whole application.
void apply(QApplication& app);
QString styleSheet();

void setRole(QWidget* widget, const char* role);

// One of Vocle's own SVG icons (data/icons/<name>.svg), tinted with `color` and rendered crisply at
// every size a view asks for. A null icon when the file is missing.
QIcon icon(const QString& name, const QColor& color = kText);
// The icon as it is drawn (no tint): the application icon.
QIcon originalIcon(const QString& name);
// Where the icon files were found; empty when nowhere.
QString iconDirectory();

}  // namespace Theme

}  // namespace vocle::ui
