#pragma once

#include <QColor>
#include <QFrame>
#include <QIcon>
#include <QLabel>
#include <QPushButton>
#include <QString>
#include <QVBoxLayout>

#include <string>

namespace vocle::screens {

// Building blocks shared by the screens. Looks come from the application's theme: widgets only carry a
// "role" property that its stylesheet selects on. The theme's roles: title, headline, secondary, caption,
// error (labels); primary, destructive, link, plain (buttons); card (frames). Screen-specific ones, which
// the theme may style: rowTitle, emptyTitle, done, badge, pinnedHeader, checkbox (labels); drawer,
// dropdownList, listRow, tableRow, checkRow (frames); dropdown (buttons).

inline QString qs(const std::string& s) { return QString::fromStdString(s); }
inline std::string ss(const QString& s) { return s.toStdString(); }

void setRole(QWidget* widget, const char* role);
QLabel* label(const QString& text, const char* role = nullptr, QWidget* parent = nullptr);
// A wrapped label for running text.
QLabel* paragraph(const QString& text, const char* role = nullptr, QWidget* parent = nullptr);
QPushButton* button(const QString& text, const char* role = nullptr, QWidget* parent = nullptr);
// A rounded panel with a section title above its contents; add rows to the returned layout.
QVBoxLayout* section(QVBoxLayout* into, const QString& title);

// Gives `view` a vertically scrolling page with the screens' margins; add content to the returned layout.
QVBoxLayout* scrollingPage(QWidget* view);
// A title with an optional subtitle beneath it.
void header(QVBoxLayout* into, const QString& title, const QString& subtitle = {});

// Line icons for the symbols the screens use ("trash", "pencil", "doc.on.doc", "checkmark", ...),
// drawn in `color`; an unknown name draws a small dot.
QIcon symbolIcon(const QString& name, const QColor& color = QColor(0xd8, 0xd8, 0xdc));
QPixmap symbolPixmap(const QString& name, int size, const QColor& color = QColor(0xd8, 0xd8, 0xdc));

}  // namespace vocle::screens
