#include "AddToLibraryDialog.h"

#include "core/VEKLocalizedString.h"

#include <QAbstractItemView>
#include <QDir>
#include <QLineEdit>
#include <QStandardPaths>

AddToLibraryDialog::AddToLibraryDialog(QWidget *parent) : QFileDialog(parent)
{
    setWindowTitle(VEKLocalizedString("Commands_fileMenu_addTitle"));
    setOption(QFileDialog::DontUseNativeDialog);
    // Directory mode lets a folder be chosen; with files shown, a file can be too.
    setFileMode(QFileDialog::Directory);
    setOption(QFileDialog::ShowDirsOnly, false);
    setAcceptMode(QFileDialog::AcceptOpen);
    // The formats the reader takes; folders show whatever the filter.
    setNameFilters({VEKLocalizedString("Commands_fileMenu_addFilter")
                        + QStringLiteral(" (*.wav *.wave *.aif *.aiff *.aifc *.caf *.mp3 *.m4a *.mp4 *.aac "
                                         "*.flac *.oga *.ogg *.wv *.ape *.tta *.mpc)"),
                    QStringLiteral("* (*)")});
    setDirectory(QStandardPaths::writableLocation(QStandardPaths::MusicLocation));
    for (QAbstractItemView *view : findChildren<QAbstractItemView *>())
        view->setSelectionMode(QAbstractItemView::ExtendedSelection);
    // Room for names, sizes and dates side by side, and for the whole filter's text.
    resize(860, 540);
}

void AddToLibraryDialog::accept()
{
    m_chosen.clear();
    const QDir here = directory();
    // The views list the folder's entries; the rows selected in the visible one are the choice.
    for (QAbstractItemView *view : findChildren<QAbstractItemView *>(QStringLiteral("listView")) +
                                       findChildren<QAbstractItemView *>(QStringLiteral("treeView"))) {
        if (!view->isVisible() || !view->selectionModel())
            continue;
        for (const QModelIndex &index : view->selectionModel()->selectedRows())
            m_chosen.append(here.absoluteFilePath(index.data().toString()));
    }
    if (m_chosen.isEmpty()) {
        // Nothing selected: a typed name, else the folder shown.
        const QLineEdit *name = findChild<QLineEdit *>(QStringLiteral("fileNameEdit"));
        const QString typed = name ? name->text().trimmed() : QString();
        m_chosen.append(typed.isEmpty() ? here.absolutePath() : here.absoluteFilePath(typed));
    }
    m_chosen.removeDuplicates();
    QDialog::accept();
}
