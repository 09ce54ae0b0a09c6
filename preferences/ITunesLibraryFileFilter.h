#pragma once

#include <QSortFilterProxyModel>

// What the chooser of the iTunes library shows: folders, and files named exactly as the library
// file is ("iTunes Music Library.xml" or "iTunes Library.xml"); nothing else can be chosen.
// Placed over the file dialog's model, whose rows are files.
class ITunesLibraryFileFilter : public QSortFilterProxyModel {
    Q_OBJECT
public:
    using QSortFilterProxyModel::QSortFilterProxyModel;

    static bool accepts(const QString &fileName, bool isFolder);

protected:
    bool filterAcceptsRow(int sourceRow, const QModelIndex &sourceParent) const override;
};
