#pragma once

#include "PlayerButton.h"

// The repeat button: each press steps the repeat mode (0 off, 1 the playlist, 2 the song) and
// the strip row shows it: normal, pressed and selected rows in that order.
class PlayerRepeatButton : public PlayerButton {
    Q_OBJECT
public:
    using PlayerButton::PlayerButton;

    quint64 mode() const { return m_mode; }
    void setMode(quint64 mode);
    int row() const override;

protected:
    void press() override;
    void release() override;

private:
    quint64 m_mode = 0;
};
