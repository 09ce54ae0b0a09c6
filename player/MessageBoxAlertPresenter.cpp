#include "MessageBoxAlertPresenter.h"

#include <QApplication>
#include <QMessageBox>

void MessageBoxAlertPresenter::present(const VEKError &error)
{
    QMessageBox box(QApplication::activeWindow());
    box.setIcon(QMessageBox::Warning);
    box.setWindowTitle(QStringLiteral("Quivera"));
    box.setText(error.localizedDescription());
    box.setInformativeText(error.failureReason());
    box.setStandardButtons(QMessageBox::Ok);
    box.exec();
}
