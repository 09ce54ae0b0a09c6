#include "ITunesLibraryFileFilter.h"

#include <QFileSystemModel>

bool ITunesLibraryFileFilter::accepts(const QString &fileName, bool isFolder)
{
    return isFolder || fileName == QLatin1String("iTunes Music Library.xml")
           || fileName == QLatin1String("iTunes Library.xml");
}

bool ITunesLibraryFileFilter::filterAcceptsRow(int sourceRow, const QModelIndex &sourceParent) const
{
    const auto *files = qobject_cast<const QFileSystemModel *>(sourceModel());
    if (!files)
        return true;
    const QModelIndex index = files->index(sourceRow, 0, sourceParent);
    return accepts(files->fileName(index), files->isDir(index));
}
