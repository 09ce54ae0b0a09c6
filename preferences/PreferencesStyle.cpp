#include "PreferencesStyle.h"

#include "player/PlayerArt.h"

#include <QPalette>
#include <QWidget>

namespace {

// The colours around the player's panel (0c0f14) and accent (b2d9ff).
const char *const kSheet = R"(
* { font-family: "FAMILY"; font-size: 14px; color: #d6e4f2; }
QWidget#PreferencesWindow { background: #0c0f14; }
QFrame#PreferencesSidebar { background: #10141b; border-right: 1px solid #1d2430; }
QLabel#PreferencesSidebarTitle { color: #b2d9ff; font-size: 20px; font-weight: 600; padding: 2px 6px 12px 8px; }
QPushButton#PreferencesPaneButton {
    text-align: left; padding: 8px 12px; border: none; border-radius: 8px;
    color: #9fb3c8; background: transparent; font-size: 15px;
}
QPushButton#PreferencesPaneButton:hover { background: #161c26; color: #d6e4f2; }
QPushButton#PreferencesPaneButton:checked { background: #1b2533; color: #b2d9ff; font-weight: 600; }
QLabel#PreferencesTitle { color: #eef5fc; font-size: 26px; font-weight: 600; }
QLabel#PreferencesSubtitle { color: #7d8ea3; font-size: 14px; }
QFrame#PreferencesSection { background: #131922; border: 1px solid #1f2733; border-radius: 12px; }
QLabel#PreferencesSectionTitle { color: #6f89a6; font-size: 12px; font-weight: 600; letter-spacing: 1px; }
QLabel#PreferencesLabel { color: #aebfd1; }
QLabel#PreferencesNote { color: #6d7d91; font-size: 13px; }
QLabel#PreferencesMessage { color: #ffc48a; }
QLabel#PreferencesValue { color: #b2d9ff; }
QLabel:disabled, QCheckBox:disabled { color: #4a5666; }

QComboBox, QPushButton, QKeySequenceEdit, QLineEdit {
    background: #1a212c; border: 1px solid #2a3442; border-radius: 7px; padding: 5px 10px;
    min-height: 20px; color: #d6e4f2;
}
QComboBox:hover, QPushButton:hover, QLineEdit:hover { border-color: #3d5068; }
QComboBox:focus, QPushButton:focus, QLineEdit:focus { border-color: #6f9fd0; }
QComboBox:disabled, QPushButton:disabled, QLineEdit:disabled { color: #4a5666; background: #151a22; border-color: #1f2733; }
QComboBox::drop-down { border: none; width: 24px; }
QComboBox::down-arrow { image: url(:/preferences/arrow.svg); width: 12px; height: 12px; }
QComboBox::down-arrow:disabled { image: url(:/preferences/arrow-disabled.svg); }
QComboBox QAbstractItemView {
    background: #1a212c; border: 1px solid #2f3b4b; selection-background-color: #2b4261;
    selection-color: #ffffff; outline: none; padding: 4px;
}
QPushButton { padding: 6px 16px; }
QPushButton:pressed { background: #24303f; }
QPushButton[segment] { border-radius: 0; padding: 6px 18px; min-width: 56px; }
QPushButton[segment="first"] { border-top-left-radius: 7px; border-bottom-left-radius: 7px; }
QPushButton[segment="last"] { border-top-right-radius: 7px; border-bottom-right-radius: 7px; }
QPushButton[segment="middle"], QPushButton[segment="last"] { border-left: none; }
QPushButton[segment]:checked { background: #2b4261; color: #ffffff; border-color: #3d5a80; }

QCheckBox { spacing: 10px; }
QCheckBox::indicator {
    width: 18px; height: 18px; border-radius: 5px; border: 1px solid #3a4757; background: #1a212c;
}
QCheckBox::indicator:hover { border-color: #6f9fd0; }
QCheckBox::indicator:checked { background: #b2d9ff; border-color: #b2d9ff; image: url(:/preferences/check.svg); }
QCheckBox::indicator:disabled { background: #151a22; border-color: #253040; }
QCheckBox::indicator:checked:disabled { background: #3c4a5c; border-color: #3c4a5c; }

QSlider { min-height: 24px; min-width: 220px; }
QSlider::groove:horizontal { height: 4px; border-radius: 2px; background: #2a3442; }
QSlider::sub-page:horizontal { height: 4px; border-radius: 2px; background: #6f9fd0; }
QSlider::sub-page:horizontal:disabled { background: #2a3442; }
QSlider::handle:horizontal {
    width: 16px; height: 16px; margin: -6px 0; border-radius: 8px; background: #b2d9ff;
    border: 2px solid #0c0f14;
}
QSlider::handle:horizontal:hover { background: #d8ecff; }
QSlider::handle:horizontal:disabled { background: #3c4a5c; }

QTableWidget, QTreeWidget {
    background: #131922; alternate-background-color: #161d27; border: 1px solid #1f2733;
    border-radius: 8px; gridline-color: transparent; selection-background-color: #22344b;
}
QTableWidget#commandsTable { background: transparent; border: none; }
QTableWidget#commandsTable QKeySequenceEdit { background: transparent; border: none; padding: 2px 4px; min-height: 0; }
QTableWidget#commandsTable QLineEdit { padding: 2px 8px; min-height: 0; border-radius: 6px; }
QHeaderView::section {
    background: #131922; color: #6f89a6; border: none; border-bottom: 1px solid #1f2733;
    padding: 6px 8px; font-size: 12px; font-weight: 600;
}
PANEL_SCROLLBARS
QScrollArea { background: transparent; border: none; }
QScrollArea > QWidget > QWidget { background: transparent; }

QToolTip { background: #0c0f14; color: #b2d9ff; border: 1px solid #3d5068; padding: 4px; }
)";

} // namespace

void PreferencesStyle::apply(QWidget *window)
{
    QPalette palette = window->palette();
    palette.setColor(QPalette::Window, PlayerArt::panel());
    palette.setColor(QPalette::Base, QColor(0x1a, 0x21, 0x2c));
    palette.setColor(QPalette::Button, QColor(0x1a, 0x21, 0x2c));
    palette.setColor(QPalette::Highlight, QColor(0x2b, 0x42, 0x61));
    for (auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        palette.setColor(role, QColor(0xd6, 0xe4, 0xf2));
    window->setPalette(palette);
    window->setStyleSheet(PlayerArt::styleSheet(QString::fromLatin1(kSheet)));
}
