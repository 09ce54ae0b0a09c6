#pragma once

#include "library/Song.h"

#include <QDialog>
#include <QHash>
#include <QList>
#include <QVariantMap>
#include <utility>

class ApplicationDelegate;
class QLabel;
class QLineEdit;
class QPushButton;
class SongInfoCover;

// The song info sheet: a window-modal dialog over the library window that shows one song of a
// list (the song table's rows) with its file's facts and its tags, walks to the previous and
// next song of the list, and saves edited tags into the file and the library.
//
// A tag field is editable exactly when the song is not of the iTunes library and the file's
// format can hold that tag. What needs the file (whether it can hold a tag, the cover) is read
// on a worker thread at each song shown; until it is there the fields stay read-only. Saving
// goes through the delegate's background edit: the file is written off the main thread (the
// song pauses meanwhile if it is playing) and the sheet shows what was read back.
//
// With unsaved edits, walking away or closing asks first: save, don't save, or cancel (stay,
// edits kept). Main thread only.
class SongInfo : public QDialog {
    Q_OBJECT
public:
    // Opens the sheet for `songs`[index] on the window of `parent` and returns it; it deletes
    // itself when closed. A missing song opens nothing (null). Ctrl+I and the menu call this.
    static SongInfo *open(ApplicationDelegate *delegate, const QList<SongPtr> &songs, qsizetype index,
                          QWidget *parent);

    SongInfo(ApplicationDelegate *delegate, const QList<SongPtr> &songs, qsizetype index,
             QWidget *parent = nullptr);
    ~SongInfo() override;

    const SongPtr &song() const { return m_song; }
    qsizetype index() const { return m_index; }
    bool hasChanges() const { return m_hasChanges; }
    // Shows another song of the list, dropping unsaved edits (the walk asks before).
    void setSongAt(qsizetype index);

    // The tag field of a metadata key ("title", "artist", ... "trackNumber" for the number,
    // "trackTotal", "discNumber", "discTotal"); null for another key.
    QLineEdit *field(const QString &key) const { return m_fields.value(key); }
    // The read-only text of a fact ("kind", "size", "dateAdded", "location", "length",
    // "sampleRate", "bitRate").
    QString factText(const QString &key) const;

    // "320 kbps" for a bit rate of 320000 bits per second; "n/a" for anything below a kbps
    // either way (0, 999, -999).
    static QString bitRateText(qint64 bitrate);
    // "44.100 kHz".
    static QString sampleRateText(double sampleRate);
    // "3 of 12" gives 3 and 12; "3" gives 3 and nothing.
    static std::pair<QString, QString> splitNumber(const QString &text);
    // The stored form of a number and a total: "3 of 12", "3", or nothing (an invalid value,
    // which removes the tag) without a number, whatever the total.
    static QVariant joinNumber(const QString &number, const QString &total);
    // The edits as the library takes them: an empty field is an invalid value (tag removed).
    QVariantMap metadataFromFields() const;

public slots:
    void previous();
    void next();
    // Writes the edits to the file and the library.
    void saveChanges();
    // Closes the sheet, asking first about unsaved edits.
    void finish();

signals:
    // What the worker read of the file arrived for the song shown.
    void fileFactsLoaded();
    // A save ended (after the library took it), with its outcome.
    void saved(bool ok);

protected:
    void reject() override;
    void closeEvent(QCloseEvent *event) override;
    // A hairline around the sheet, so it stands apart from the window under it even where no
    // window manager frames it.
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    // 1 save, 0 don't save, -1 cancel.
    int confirmSave();
    void walk(qsizetype to);
    void update();
    void setHasChanges(bool changes);
    void build();
    void fitTitles();

    ApplicationDelegate *m_delegate;
    QList<SongPtr> m_songs;
    qsizetype m_index = 0;
    SongPtr m_song;
    bool m_hasChanges = false;
    // Counts the songs shown, so a worker's late answer for an earlier one is dropped.
    quint64 m_generation = 0;
    bool m_closing = false;

    SongInfoCover *m_cover = nullptr;
    QLabel *m_title = nullptr;
    QLabel *m_subtitle = nullptr;
    QString m_fullTitle;
    QStringList m_byLine;
    QLabel *m_hint = nullptr;
    QHash<QString, QLineEdit *> m_fields;
    QHash<QString, QLabel *> m_facts;
    QPushButton *m_previous = nullptr;
    QPushButton *m_next = nullptr;
    QPushButton *m_save = nullptr;
    QPushButton *m_done = nullptr;
};
