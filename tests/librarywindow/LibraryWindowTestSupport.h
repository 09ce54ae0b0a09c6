#pragma once

// What the library window's tests share besides the quiet launch: an answer to the next message
// box.

#include <QAbstractButton>
#include <QApplication>
#include <QCheckBox>
#include <QMessageBox>
#include <QTimer>
#include <gtest/gtest.h>

namespace LibraryWindowTest {

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
