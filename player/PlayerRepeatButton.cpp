#include "PlayerRepeatButton.h"

void PlayerRepeatButton::setMode(quint64 mode)
{
    m_mode = mode;
    update();
}

int PlayerRepeatButton::row() const
{
    return m_mode == 1 ? 1 : m_mode == 2 ? 2 : 0;
}

void PlayerRepeatButton::press()
{
    setMode(m_mode + 1 >= 3 ? 0 : m_mode + 1);
}

void PlayerRepeatButton::release()
{
    emit triggered(this);
}
