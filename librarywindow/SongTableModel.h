#pragma once

#include "library/Song.h"

#include <QAbstractTableModel>
#include <QList>
#include <QStringList>

class ApplicationDelegate;

// The song table's rows over ApplicationDelegate::songs(): row i is element i of that list,
// read when a cell is drawn. The model holds the list it was last told of (shared with the
// delegate, not copied), so its rows stay those the view knows until the next reload. One column per
// song field of `identifiers()`, whichever the view shows; `ordinal` is the status column
// (row number and the playing or current mark). Main thread only.
class SongTableModel : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Role { StatusRole = Qt::UserRole + 1, SongRole };
    enum class Status { None, Current, Playing };

    explicit SongTableModel(ApplicationDelegate *delegate, QObject *parent = nullptr);

    // Every column the table has, in its first order: "ordinal", "name", then the other fields.
    static const QStringList &identifiers();
    static int columnOf(const QString &identifier) { return int(identifiers().indexOf(identifier)); }
    // Whether a column shows a number (right-aligned).
    static bool isNumeric(const QString &identifier);

    // The delegate's list changed: the rows are read anew.
    void reload();
    // Whether the delegate's list is the one shown (shares its songs, as a search that every
    // song matches hands back the list itself), and the same rows with texts read anew.
    bool showsDelegatesList() const;
    void textsChanged();
    // Only the status marks changed (the stream's song or its playing state).
    void statusChanged();

    SongPtr songAt(int row) const;
    // The list the rows show.
    const QList<SongPtr> &songs() const { return m_songs; }
    Status statusOf(int row) const;
    // The text of a cell, as drawn and as a screen reader reads it.
    QString text(int row, int column) const;

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;

private:
    ApplicationDelegate *m_delegate;
    QList<SongPtr> m_songs;
};
