#pragma once

class QWidget;

// The look of the preferences window: the player's dark panel and accent, its font, cards of
// settings on a slightly lighter ground, and controls drawn to match (a style sheet over the
// Fusion style, which follows style sheets fully).
class PreferencesStyle {
public:
    static void apply(QWidget *window);
};
