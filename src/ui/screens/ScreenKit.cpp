#include "ui/screens/ScreenKit.h"

#include <QGuiApplication>
#include <QHash>
#include <QPainter>
#include <QPixmapCache>
#include <QScreen>
#include <QScrollArea>
#include <QSvgRenderer>

namespace vocle::screens {

void setRole(QWidget* widget, const char* role) {
    if (role) widget->setProperty("role", role);
}

QLabel* label(const QString& text, const char* role, QWidget* parent) {
    auto* l = new QLabel(text, parent);
    setRole(l, role);
    l->setTextFormat(Qt::PlainText);
    return l;
}

QLabel* paragraph(const QString& text, const char* role, QWidget* parent) {
    auto* l = label(text, role, parent);
    l->setWordWrap(true);
    return l;
}

QPushButton* button(const QString& text, const char* role, QWidget* parent) {
    auto* b = new QPushButton(text, parent);
    setRole(b, role);
    b->setCursor(Qt::PointingHandCursor);
    return b;
}

QVBoxLayout* section(QVBoxLayout* into, const QString& title) {
    into->addWidget(label(title, "headline"));
    auto* card = new QFrame;
    setRole(card, "card");
    auto* layout = new QVBoxLayout(card);
    layout->setContentsMargins(14, 12, 14, 12);
    layout->setSpacing(10);
    into->addWidget(card);
    return layout;
}

QVBoxLayout* scrollingPage(QWidget* view) {
    auto* outer = new QVBoxLayout(view);
    outer->setContentsMargins(0, 0, 0, 0);
    auto* scroll = new QScrollArea(view);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    auto* content = new QWidget;
    content->setObjectName("screenPage");
    auto* layout = new QVBoxLayout(content);
    layout->setContentsMargins(24, 20, 24, 24);
    layout->setSpacing(10);
    scroll->setWidget(content);
    outer->addWidget(scroll);
    return layout;
}

void header(QVBoxLayout* into, const QString& title, const QString& subtitle) {
    into->addWidget(label(title, "title"));
    if (!subtitle.isEmpty()) into->addWidget(paragraph(subtitle, "secondary"));
    into->addSpacing(6);
}

namespace {

// 24×24 stroke drawings; "F" prefix marks a filled shape.
const QHash<QString, QString>& drawings() {
    static const QHash<QString, QString> d = {
        {"trash", "M4 7h16M9 7V4h6v3M6 7l1 13h10l1-13M10 11v6M14 11v6"},
        {"pencil", "M4 20l4-1 11-11-3-3L5 16l-1 4zM14 7l3 3"},
        {"doc.on.doc", "M8 8h11v13H8zM5 16V3h11"},
        {"checkmark", "M5 12l5 5 9-10"},
        {"xmark", "M6 6l12 12M18 6L6 18"},
        {"chevron.down", "M6 9l6 6 6-6"},
        {"arrow.up.right.square", "M4 4h16v16H4zM10 14l6-6M11 8h5v5"},
        {"character.textbox", "M3 5h18v14H3zM8 15l3-7 3 7M9.3 12.5h3.4"},
        {"mic.fill", "FM9 3h6v10H9zM12 17a6 6 0 0 0 6-6h1a7 7 0 0 1-6.5 7v3h-1v-3A7 7 0 0 1 5 11h1a6 6 0 0 0 6 6z"},
        {"keyboard", "M2 6h20v12H2zM6 10h1M10 10h1M14 10h1M18 10h1M7 14h10"},
        {"doc.on.clipboard", "M9 3h6v3H9zM7 4.5H5V21h14V4.5h-2M8.5 11h7M8.5 14.5h7M8.5 18h4"},
        {"checkmark.circle.fill", "FM12 2a10 10 0 1 0 0 20 10 10 0 1 0 0-20zM10.5 16.5l-5-5 1.4-1.4 3.6 3.6 6.6-6.6 1.4 1.4z"},
        {"speaker", "M4 9h4l5-4v14l-5-4H4z"},
        {"speaker.wave.3", "M4 9h4l5-4v14l-5-4H4zM16 9a4 4 0 0 1 0 6M18.5 6.5a8 8 0 0 1 0 11M21 4a11.5 11.5 0 0 1 0 16"},
        {"doc.text", "M6 3h9l4 4v14H6zM9 11h7M9 15h7"},
        {"doc", "M6 3h9l4 4v14H6zM15 3v4h4"},
        {"sparkles", "M12 3l2 6 6 2-6 2-2 6-2-6-6-2 6-2zM19 16l1 2 2 1-2 1-1 2-1-2-2-1 2-1z"},
        {"message", "M4 5h16v11H9l-5 4z"},
        {"envelope", "M3 6h18v12H3zM3 6l9 7 9-7"},
        {"note.text", "M5 4h14v16H5zM8 9h8M8 13h8M8 17h5"},
        {"list.bullet", "M9 6h11M9 12h11M9 18h11M4.5 6h.01M4.5 12h.01M4.5 18h.01"},
        {"wand.and.stars", "M4 20L16 8M14 6l4 4M18 3v3M16.5 4.5h3M6 5v3M4.5 6.5h3"},
        {"questionmark.circle", "M12 3a9 9 0 1 0 0 18 9 9 0 1 0 0-18zM9.5 9.5a2.5 2.5 0 1 1 3.5 2.3c-.7.3-1 .9-1 1.7v.5M12 17h.01"},
    };
    return d;
}

}  // namespace

QPixmap symbolPixmap(const QString& name, int size, const QColor& color) {
    // Rows paint their icons on every frame; rendering the drawing each time would cost a scroll step.
    // Qt's own cache: it goes away with the application, as pixmaps must.
    const qreal ratio = qApp ? qApp->devicePixelRatio() : 1.0;
    const QString key = QString("vocle-symbol/%1/%2/%3/%4").arg(name).arg(size).arg(color.rgba()).arg(ratio);
    QPixmap cached;
    if (QPixmapCache::find(key, &cached)) return cached;
    QString path = drawings().value(name);
    const bool filled = path.startsWith('F');
    if (filled) path.remove(0, 1);
    if (path.isEmpty()) path = "M11 11h2v2h-2z";
    const QString svg =
        QString("<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 24 24'><path d='%1' fill='%2' stroke='%3' "
                "stroke-width='1.8' stroke-linecap='round' stroke-linejoin='round'/></svg>")
            .arg(path, filled ? color.name() : "none", filled ? "none" : color.name());
    QPixmap pixmap(QSize(size, size) * ratio);
    pixmap.fill(Qt::transparent);
    QSvgRenderer renderer(svg.toUtf8());
    QPainter p(&pixmap);
    p.setRenderHint(QPainter::Antialiasing);
    renderer.render(&p);
    pixmap.setDevicePixelRatio(ratio);
    QPixmapCache::insert(key, pixmap);
    return pixmap;
}

QIcon symbolIcon(const QString& name, const QColor& color) {
    QIcon icon;
    for (int s : {16, 20, 24, 32, 48}) icon.addPixmap(symbolPixmap(name, s, color));
    return icon;
}

}  // namespace vocle::screens
