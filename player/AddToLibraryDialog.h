#pragma once

#include <QFileDialog>
#include <QStringList>

// The open panel of "Add to Library": several files and folders at once, in one dialog. Qt's
// own dialog (the desktop's native one chooses either files or folders, never both), whose
// views allow an extended selection; Choose takes whatever is selected. Window-modal.
class AddToLibraryDialog : public QFileDialog {
    Q_OBJECT
public:
    explicit AddToLibraryDialog(QWidget *parent = nullptr);

    // The chosen files and folders, absolute; valid after the dialog was accepted.
    const QStringList &chosenPaths() const { return m_chosen; }

public slots:
    void accept() override;

private:
    QStringList m_chosen;
};
