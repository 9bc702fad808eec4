#include "integration/screens/HarnessTheme.h"

#include <QApplication>
#include <QPalette>
#include <QStyleFactory>

namespace vocle::testing {

void applyHarnessTheme(QApplication& app) {
    app.setStyle(QStyleFactory::create("Fusion"));
    QPalette p;
    p.setColor(QPalette::Window, QColor(0x1e, 0x1e, 0x20));
    p.setColor(QPalette::WindowText, QColor(0xec, 0xec, 0xee));
    p.setColor(QPalette::Base, QColor(0x2a, 0x2a, 0x2d));
    p.setColor(QPalette::AlternateBase, QColor(0x26, 0x26, 0x29));
    p.setColor(QPalette::Text, QColor(0xec, 0xec, 0xee));
    p.setColor(QPalette::Button, QColor(0x33, 0x33, 0x37));
    p.setColor(QPalette::ButtonText, QColor(0xec, 0xec, 0xee));
    p.setColor(QPalette::Highlight, QColor(0x66, 0x5c, 0xd2));
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::PlaceholderText, QColor(0x8e, 0x8e, 0x93));
    p.setColor(QPalette::ToolTipBase, QColor(0x2a, 0x2a, 0x2d));
    p.setColor(QPalette::ToolTipText, QColor(0xec, 0xec, 0xee));
    p.setColor(QPalette::Disabled, QPalette::ButtonText, QColor(0x6e, 0x6e, 0x73));
    p.setColor(QPalette::Disabled, QPalette::Text, QColor(0x6e, 0x6e, 0x73));
    app.setPalette(p);
    app.setStyleSheet(R"(
        QLabel[role="title"] { font-size: 20px; font-weight: 600; }
        QLabel[role="secondary"] { color: #a1a1a6; }
        QLabel[role="caption"] { color: #8e8e93; font-size: 12px; }
        QLabel[role="headline"] { font-size: 13px; font-weight: 600; color: #c7c7cc; margin-top: 6px; }
        QLabel[role="error"] { color: #ff6961; }
        QLabel[role="warning"] { color: #ffb340; font-size: 12px; }
        QLabel[role="rowTitle"] { font-weight: 500; }
        QLabel[role="emptyTitle"] { font-size: 16px; font-weight: 600; }
        QLabel[role="done"] { color: #8e8e93; }
        QLabel[role="badge"] { background: rgba(102,92,210,0.3); color: #a39bff; border-radius: 8px; padding: 2px 8px; font-size: 11px; }
        QLabel[role="pinnedHeader"] { background: #1e1e20; }
        QLabel[role="checkbox"] { border: 1.5px solid #6e6e73; border-radius: 5px; }
        QLabel[role="checkbox"][completed="true"] { background: #665cd2; border-color: #665cd2; }
        QFrame[role="card"] { background: #262629; border: 1px solid #323236; border-radius: 10px; }
        QFrame[role="drawer"] { background: #262629; border-left: 1px solid #3a3a3e; }
        QFrame[role="dropdownList"] { background: #2c2c30; border: 1px solid #3a3a3e; border-radius: 8px; }
        QFrame[role="listRow"], QFrame[role="tableRow"], QFrame[role="checkRow"] { border-radius: 8px; background: transparent; }
        QFrame[role="listRow"]:hover, QFrame[role="tableRow"]:hover, QFrame[role="checkRow"][clickable="true"]:hover { background: rgba(255,255,255,0.06); }
        QFrame[role="listRow"][selected="true"] { background: rgba(102,92,210,0.3); }
        QPushButton { background: #3a3a3e; border: 1px solid #48484d; border-radius: 6px; padding: 5px 12px; }
        QPushButton:hover { background: #46464b; }
        QPushButton:disabled { color: #6e6e73; background: #303033; }
        QPushButton[role="primary"] { background: #665cd2; border-color: #665cd2; color: white; }
        QPushButton[role="primary"]:disabled { background: #3b3766; border-color: #3b3766; color: #9aa7b8; }
        QPushButton[role="destructive"] { color: #ff6961; }
        QPushButton[role="link"] { background: transparent; border: none; color: #a39bff; padding: 2px 0; }
        QPushButton[role="plain"] { background: transparent; border: none; padding: 0; }
        QPushButton[role="plain"]:hover { background: rgba(255,255,255,0.08); }
        QPushButton[role="dropdown"] { text-align: left; padding: 6px 10px; }
        QLineEdit, QPlainTextEdit, QComboBox { background: #1c1c1e; border: 1px solid #3a3a3e; border-radius: 6px; padding: 4px 6px; }
        QLineEdit:focus, QPlainTextEdit:focus { border-color: #665cd2; }
        QProgressBar { background: #3a3a3e; border: none; border-radius: 4px; }
        QProgressBar::chunk { background: #665cd2; border-radius: 4px; }
        QScrollArea, QWidget#screenPage { background: transparent; }
    )");
}

}  // namespace vocle::testing
