#pragma once

// What the panes' tests share: a clean store with the program's defaults, and the user's moves
// on controls (the panes listen only to what a user does, never to filling).

#include "audio/Stream.h"
#include "player/VEKSlider.h"
#include "support/frontend/QuietLaunch.h"

#include <QAbstractButton>
#include <QComboBox>
#include <QWidget>
#include <gtest/gtest.h>

namespace PreferencesTest {

inline UserDefaults &freshDefaults()
{
    UserDefaults &d = QuietLaunch::freshSettings();
    Stream::registerDefaults(d);
    return d;
}

template <typename T>
T *control(const QWidget &pane, const char *name)
{
    return pane.findChild<T *>(QString::fromLatin1(name));
}

// Chooses the item with `text` as a user would.
inline void choose(QComboBox *popup, const QString &text)
{
    const int index = popup->findText(text);
    ASSERT_GE(index, 0) << text.toStdString();
    popup->setCurrentIndex(index);
    emit popup->activated(index);
}

inline void chooseTag(QComboBox *popup, qint64 tag)
{
    const int index = popup->findData(QVariant(tag));
    ASSERT_GE(index, 0) << tag;
    popup->setCurrentIndex(index);
    emit popup->activated(index);
}

inline QStringList items(const QComboBox *popup)
{
    QStringList texts;
    for (int i = 0; i < popup->count(); ++i)
        texts << popup->itemText(i);
    return texts;
}

inline void drag(VEKSlider *slider, double value)
{
    slider->setValue(slider->positionFor(value));
}

} // namespace PreferencesTest
