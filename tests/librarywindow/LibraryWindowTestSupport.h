#pragma once

// What the library window's tests share: a launch without the network and the session bus, and
// an answer to the next message box.

#include "app/ApplicationDelegate.h"
#include "outputs/VEKAudioDevice.h"

#include <QAbstractButton>
#include <QApplication>
#include <QCheckBox>
#include <QMessageBox>
#include <QTimer>
#include <gtest/gtest.h>

namespace LibraryWindowTest {

// The launch of the library and, when asked, of a stream on the device that keeps time.
inline void launch(ApplicationDelegate &delegate, bool stream = false)
{
    ApplicationDelegate::LaunchOptions options;
    options.stream = stream;
    options.remote = false;
    options.mpris = false;
    if (stream)
        options.outputDevice = VEKAudioDevice::deviceWithUID(QStringLiteral("null"));
    delegate.applicationWillFinishLaunching(options);
}

// Presses the button `text` of the next message box, ticking its check box first if asked.
inline void answerNextBox(const QString &text, bool tick = false)
{
    QTimer::singleShot(0, [text, tick] {
        auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
        ASSERT_TRUE(box);
        if (tick)
            box->checkBox()->setChecked(true);
        for (QAbstractButton *b : box->buttons())
            if (b->text() == text)
                b->click();
    });
}

} // namespace LibraryWindowTest
