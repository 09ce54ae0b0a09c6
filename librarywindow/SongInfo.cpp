#include "SongInfo.h"

#include "SongInfoCover.h"

#include "app/ApplicationDelegate.h"
#include "core/VEKLocalizedString.h"
#include "io/VEKAudioFileModifier.h"
#include "player/PlayerArt.h"
#include "text/VEKFileSizeFormatter.h"
#include "text/VEKTimeFormatter.h"

#include <QApplication>
#include <QCloseEvent>
#include <QDir>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QMessageBox>
#include <QPainter>
#include <QPointer>
#include <QPushButton>
#include <QSet>
#include <QStyle>
#include <QTextLayout>
#include <QThreadPool>
#include <QVBoxLayout>

namespace {

const QString kOf = QStringLiteral(" of ");

// The tag fields: the key of the field, the key the file's format is asked about, the label.
struct TagField {
    const char *key;
    const char *fileKey;
    const char *label;
};
const TagField kTextFields[] = {
    {"title", "title", "SongInfo_name"},           {"artist", "artist", "SongInfo_artist"},
    {"album", "album", "SongInfo_album"},          {"albumArtist", "albumArtist", "SongInfo_albumArtist"},
    {"composer", "composer", "SongInfo_composer"}, {"genre", "genre", "SongInfo_genre"},
};
const TagField kNumberFields[] = {
    {"trackNumber", "trackNumber", "SongInfo_track"},
    {"trackTotal", "trackNumber", nullptr},
    {"discNumber", "discNumber", "SongInfo_disc"},
    {"discTotal", "discNumber", nullptr},
};

// The key the file's format is asked about for a field.
QString fileKeyOf(const QString &field)
{
    for (const TagField &f : kTextFields)
        if (field == QLatin1String(f.key))
            return QLatin1String(f.fileKey);
    for (const TagField &f : kNumberFields)
        if (field == QLatin1String(f.key))
            return QLatin1String(f.fileKey);
    return {};
}

struct FileFacts {
    QSet<QString> supportedKeys;
    QImage cover;
};

// What the sheet needs of the file, read off the main thread: the tags its format can hold (none
// for an iTunes song, which is never written) and the cover. `path` is copied on the main thread:
// the library's song is not to be read here.
FileFacts readFileFacts(const QString &path, bool writable)
{
    FileFacts facts;
    if (writable) {
        VEKAudioFileModifier modifier;
        if (modifier.initWithURL(path)) {
            for (const char *key : {"title", "artist", "album", "albumArtist", "composer", "genre",
                                    "trackNumber", "discNumber"})
                if (modifier.supportsKey(QLatin1String(key)))
                    facts.supportedKeys.insert(QLatin1String(key));
        }
    }
    Song probe;
    probe.setURL(path);
    facts.cover = probe.image();
    return facts;
}

QString abbreviatedPath(const QString &path)
{
    const QString home = QDir::homePath();
    if (!home.isEmpty() && home != QLatin1String("/") && path.startsWith(home + u'/'))
        return u'~' + path.mid(home.size());
    return path;
}

QColor faded(qreal alpha)
{
    QColor c = PlayerArt::accent();
    c.setAlphaF(float(alpha));
    return c;
}

QLabel *caption(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    label->setFont(PlayerArt::font(PlayerArt::Weight::Regular, 13));
    QPalette p = label->palette();
    p.setColor(QPalette::WindowText, faded(0.6));
    label->setPalette(p);
    label->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    return label;
}

QString sheetStyle()
{
    const QColor accent = PlayerArt::accent();
    return QStringLiteral(
               "QLineEdit { background: #0d1015; color: #dce4ee; border: 1px solid #2a313b; border-radius: "
               "5px;"
               " padding: 3px 7px; selection-background-color: %1; selection-color: white; }"
               "QLineEdit:focus { border-color: %2; }"
               "QLineEdit[readOnly=\"true\"] { background: transparent; border-color: transparent; }"
               "QPushButton { background: #232931; color: #dce4ee; border: 1px solid #303844; border-radius: "
               "6px;"
               " padding: 5px 16px; min-width: 64px; }"
               "QPushButton:hover { background: #2b323c; }"
               "QPushButton:pressed { background: #1b2027; }"
               "QPushButton:disabled { color: rgba(220, 228, 238, 90); border-color: #262c35; }"
               "QPushButton:default { background: %1; border-color: %3; color: white; }"
               "QPushButton:default:hover { background: %4; }"
               "QFrame#rule { background: #262c35; max-height: 1px; border: none; }")
        .arg(accent.darker(250).name(), accent.darker(130).name(), accent.darker(170).name(),
             accent.darker(220).name());
}

// `text` cut to at most `lines` lines of `width` in `font`, the last ending in an ellipsis.
QString elidedLines(const QString &text, const QFont &font, int width, int lines)
{
    if (width <= 0)
        return text;
    QTextLayout layout(text, font);
    layout.beginLayout();
    QStringList kept;
    for (int n = 0; n < lines; ++n) {
        QTextLine line = layout.createLine();
        if (!line.isValid())
            break;
        line.setLineWidth(width);
        const bool last = n + 1 == lines && line.textStart() + line.textLength() < text.size();
        const QString part =
            last ? QFontMetrics(font).elidedText(text.mid(line.textStart()), Qt::ElideRight, width)
                 : text.mid(line.textStart(), line.textLength()).trimmed();
        kept.append(part);
    }
    layout.endLayout();
    return kept.join(u'\n');
}

QFrame *rule(QWidget *parent)
{
    auto *line = new QFrame(parent);
    line->setObjectName(QStringLiteral("rule"));
    line->setFixedHeight(1);
    return line;
}

} // namespace

SongInfo *SongInfo::open(ApplicationDelegate *delegate, const QList<SongPtr> &songs, qsizetype index,
                         QWidget *parent)
{
    if (index < 0 || index >= songs.size() || !songs.at(index) || songs.at(index)->isMissing())
        return nullptr;
    auto *sheet = new SongInfo(delegate, songs, index, parent ? parent->window() : nullptr);
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    sheet->show();
    return sheet;
}

SongInfo::SongInfo(ApplicationDelegate *delegate, const QList<SongPtr> &songs, qsizetype index,
                   QWidget *parent)
    : QDialog(parent), m_delegate(delegate), m_songs(songs), m_index(index)
{
    setWindowModality(Qt::WindowModal);
    setObjectName(QStringLiteral("SongInfo"));
    build();
    setSongAt(index);
}

SongInfo::~SongInfo() = default;

void SongInfo::build()
{
    setStyleSheet(sheetStyle());
    setMinimumWidth(640);
    auto *outer = new QVBoxLayout(this);
    outer->setContentsMargins(28, 26, 28, 22);
    outer->setSpacing(18);

    // The song at a glance: the cover, the name, the artist and album.
    auto *head = new QHBoxLayout;
    head->setSpacing(22);
    m_cover = new SongInfoCover(this);
    m_cover->setFixedSize(168, 168);
    head->addWidget(m_cover, 0, Qt::AlignTop);
    auto *titles = new QVBoxLayout;
    titles->setSpacing(4);
    m_title = new QLabel(this);
    m_title->setObjectName(QStringLiteral("title"));
    m_title->setFont(PlayerArt::font(PlayerArt::Weight::Medium, 24));
    m_title->setWordWrap(false);
    m_title->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_subtitle = new QLabel(this);
    m_subtitle->setFont(PlayerArt::font(PlayerArt::Weight::Regular, 16));
    m_subtitle->setWordWrap(false);
    // The titles are cut to the column, never widen it.
    m_title->setMinimumWidth(1);
    m_subtitle->setMinimumWidth(1);
    m_title->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    m_subtitle->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    QPalette sub = m_subtitle->palette();
    sub.setColor(QPalette::WindowText, PlayerArt::accent());
    m_subtitle->setPalette(sub);
    titles->addStretch(1);
    titles->addWidget(m_title);
    titles->addWidget(m_subtitle);
    titles->addSpacing(12);

    // The file's facts under the titles, two columns of caption and value.
    auto *facts = new QGridLayout;
    facts->setHorizontalSpacing(10);
    facts->setVerticalSpacing(3);
    const std::pair<const char *, const char *> factRows[] = {
        {"kind", "SongInfo_kind"},       {"length", "SongInfo_length"}, {"sampleRate", "SongInfo_sampleRate"},
        {"bitRate", "SongInfo_bitRate"}, {"size", "SongInfo_size"},     {"dateAdded", "SongInfo_dateAdded"},
    };
    int i = 0;
    for (const auto &[key, label] : factRows) {
        auto *value = new QLabel(this);
        value->setObjectName(QLatin1String(key));
        value->setFont(PlayerArt::font(PlayerArt::Weight::Regular, 13));
        value->setTextInteractionFlags(Qt::TextSelectableByMouse);
        m_facts.insert(QLatin1String(key), value);
        const int row = i % 3, column = (i / 3) * 2;
        QLabel *cap = caption(VEKLocalizedString(label), this);
        facts->addWidget(cap, row, column);
        facts->addWidget(value, row, column + 1);
        ++i;
    }
    // Where the file is, under the facts, wrapped when long.
    facts->addWidget(caption(VEKLocalizedString("SongInfo_location"), this), 3, 0,
                     Qt::AlignRight | Qt::AlignTop);
    auto *where = new QLabel(this);
    where->setObjectName(QStringLiteral("location"));
    where->setFont(PlayerArt::font(PlayerArt::Weight::Regular, 13));
    where->setTextInteractionFlags(Qt::TextSelectableByMouse);
    where->setWordWrap(true);
    m_facts.insert(QStringLiteral("location"), where);
    facts->addWidget(where, 3, 1, 1, 3);
    facts->setColumnStretch(1, 1);
    facts->setColumnStretch(3, 1);
    titles->addLayout(facts);
    head->addLayout(titles, 1);
    outer->addLayout(head);
    outer->addWidget(rule(this));

    // The tags.
    auto *tags = new QGridLayout;
    tags->setHorizontalSpacing(12);
    tags->setVerticalSpacing(6);
    tags->setColumnMinimumWidth(0, 96);
    int row = 0;
    for (const TagField &f : kTextFields) {
        auto *edit = new QLineEdit(this);
        edit->setObjectName(QLatin1String(f.key) + QStringLiteral("Field"));
        edit->setFont(PlayerArt::font(PlayerArt::Weight::Regular, 15));
        QLabel *cap = caption(VEKLocalizedString(f.label), this);
        cap->setBuddy(edit);
        edit->setAccessibleName(cap->text());
        m_fields.insert(QLatin1String(f.key), edit);
        tags->addWidget(cap, row, 0);
        tags->addWidget(edit, row, 1, 1, 2);
        ++row;
    }
    auto *numbers = new QHBoxLayout;
    numbers->setSpacing(8);
    for (int n = 0; n < 4; n += 2) {
        const TagField &number = kNumberFields[n];
        const TagField &total = kNumberFields[n + 1];
        QLabel *cap = caption(VEKLocalizedString(number.label), this);
        if (n == 0) {
            tags->addWidget(cap, row, 0);
        } else {
            numbers->addSpacing(24);
            numbers->addWidget(cap);
        }
        for (const TagField *f : {&number, &total}) {
            auto *edit = new QLineEdit(this);
            edit->setObjectName(QLatin1String(f->key) + QStringLiteral("Field"));
            edit->setFont(PlayerArt::font(PlayerArt::Weight::Regular, 15));
            edit->setFixedWidth(58);
            edit->setAlignment(Qt::AlignCenter);
            edit->setAccessibleName(f == &number ? cap->text() : cap->text() + QStringLiteral(" total"));
            m_fields.insert(QLatin1String(f->key), edit);
            numbers->addWidget(edit);
            if (f == &number) {
                QLabel *of = caption(VEKLocalizedString("SongInfo_of"), this);
                of->setAlignment(Qt::AlignCenter);
                numbers->addWidget(of);
            }
        }
    }
    numbers->addStretch(1);
    tags->addLayout(numbers, row, 1, 1, 2);
    tags->setColumnStretch(1, 1);
    outer->addLayout(tags);
    for (QLineEdit *edit : std::as_const(m_fields))
        connect(edit, &QLineEdit::textEdited, this, [this] { setHasChanges(true); });

    m_hint = new QLabel(this);
    m_hint->setFont(PlayerArt::font(PlayerArt::Weight::Regular, 13));
    QPalette hint = m_hint->palette();
    hint.setColor(QPalette::WindowText, faded(0.55));
    m_hint->setPalette(hint);
    m_hint->setAlignment(Qt::AlignCenter);
    m_hint->setWordWrap(true);
    m_hint->hide();
    outer->addWidget(m_hint);

    // Walking on the left, the sheet's own buttons on the right.
    auto *buttons = new QHBoxLayout;
    buttons->setSpacing(8);
    m_previous = new QPushButton(VEKLocalizedString("SongInfo_previous"), this);
    m_next = new QPushButton(VEKLocalizedString("SongInfo_next"), this);
    m_save = new QPushButton(VEKLocalizedString("SongInfo_save"), this);
    m_done = new QPushButton(VEKLocalizedString("SongInfo_done"), this);
    m_previous->setObjectName(QStringLiteral("previousButton"));
    m_next->setObjectName(QStringLiteral("nextButton"));
    m_save->setObjectName(QStringLiteral("saveChangesButton"));
    m_done->setObjectName(QStringLiteral("doneButton"));
    for (QPushButton *b : {m_previous, m_next, m_save, m_done}) {
        b->setFont(PlayerArt::font(PlayerArt::Weight::Medium, 14));
        b->setAutoDefault(false);
        b->setCursor(Qt::PointingHandCursor);
    }
    m_done->setDefault(true);
    buttons->addWidget(m_previous);
    buttons->addWidget(m_next);
    buttons->addStretch(1);
    buttons->addWidget(m_save);
    buttons->addWidget(m_done);
    outer->addLayout(buttons);
    connect(m_previous, &QPushButton::clicked, this, &SongInfo::previous);
    connect(m_next, &QPushButton::clicked, this, &SongInfo::next);
    connect(m_save, &QPushButton::clicked, this, &SongInfo::saveChanges);
    connect(m_done, &QPushButton::clicked, this, &SongInfo::finish);
}

QString SongInfo::factText(const QString &key) const
{
    const QLabel *label = m_facts.value(key);
    return label ? label->text() : QString();
}

QString SongInfo::bitRateText(qint64 bitrate)
{
    if (bitrate > -1000 && bitrate < 1000)
        return VEKLocalizedString("SongInfo_notAvailable");
    return VEKLocalizedString("SongInfo_kbps").arg(bitrate / 1000);
}

QString SongInfo::sampleRateText(double sampleRate)
{
    return VEKLocalizedString("SongInfo_kHz").arg(QString::number(sampleRate / 1000.0, 'f', 3));
}

std::pair<QString, QString> SongInfo::splitNumber(const QString &text)
{
    const QStringList parts = text.split(kOf);
    return {parts.value(0), parts.size() > 1 ? parts.at(1) : QString()};
}

QVariant SongInfo::joinNumber(const QString &number, const QString &total)
{
    if (number.isEmpty())
        return QVariant();
    if (!total.isEmpty())
        return number + kOf + total;
    return number;
}

QVariantMap SongInfo::metadataFromFields() const
{
    QVariantMap metadata;
    for (const TagField &f : kTextFields) {
        const QString text = m_fields.value(QLatin1String(f.key))->text();
        metadata.insert(QLatin1String(f.key), text.isEmpty() ? QVariant() : QVariant(text));
    }
    metadata.insert(QStringLiteral("track"), joinNumber(field(QStringLiteral("trackNumber"))->text(),
                                                        field(QStringLiteral("trackTotal"))->text()));
    metadata.insert(QStringLiteral("disc"), joinNumber(field(QStringLiteral("discNumber"))->text(),
                                                       field(QStringLiteral("discTotal"))->text()));
    return metadata;
}

void SongInfo::setSongAt(qsizetype index)
{
    if (index < 0 || index >= m_songs.size())
        return;
    m_index = index;
    m_song = m_songs.at(index);
    setHasChanges(false);
    update();
}

void SongInfo::setHasChanges(bool changes)
{
    m_hasChanges = changes;
    m_save->setEnabled(changes);
    // Return in a field saves the edits; without any it closes the sheet.
    m_save->setDefault(changes);
    m_done->setDefault(!changes);
}

void SongInfo::update()
{
    ++m_generation;
    const Song &s = *m_song;
    const QString name = s.name().isEmpty() ? QFileInfo(s.URL()).completeBaseName() : s.name();
    setWindowTitle(name);
    m_title->setText(name);
    QStringList by;
    for (const QString &part : {s.artist(), s.album()})
        if (!part.isEmpty())
            by.append(part);
    m_fullTitle = name;
    m_byLine = by;
    fitTitles();

    m_facts.value(QStringLiteral("kind"))->setText(s.kind());
    m_facts.value(QStringLiteral("size"))
        ->setText(VEKFileSizeFormatter().stringForByteCount(qint64(s.size())));
    m_facts.value(QStringLiteral("dateAdded"))
        ->setText(QLocale().toString(s.dateAdded(), QLocale::ShortFormat));
    m_facts.value(QStringLiteral("location"))->setText(abbreviatedPath(s.URL()));
    m_facts.value(QStringLiteral("length"))->setText(VEKTimeFormatter().stringForSeconds(s.length()));
    m_facts.value(QStringLiteral("sampleRate"))->setText(sampleRateText(s.sampleRate()));
    m_facts.value(QStringLiteral("bitRate"))->setText(bitRateText(qint64(s.bitrate())));

    const std::pair<QString, QString> track = splitNumber(s.track());
    const std::pair<QString, QString> disc = splitNumber(s.disc());
    const QHash<QString, QString> texts = {
        {QStringLiteral("title"), s.name()},          {QStringLiteral("artist"), s.artist()},
        {QStringLiteral("album"), s.album()},         {QStringLiteral("albumArtist"), s.albumArtist()},
        {QStringLiteral("composer"), s.composer()},   {QStringLiteral("genre"), s.genre()},
        {QStringLiteral("trackNumber"), track.first}, {QStringLiteral("trackTotal"), track.second},
        {QStringLiteral("discNumber"), disc.first},   {QStringLiteral("discTotal"), disc.second},
    };
    for (auto it = m_fields.cbegin(); it != m_fields.cend(); ++it) {
        it.value()->setText(texts.value(it.key()));
        it.value()->setCursorPosition(0);
        // Read-only until the file says which tags it can hold.
        it.value()->setReadOnly(true);
        it.value()->setPlaceholderText(QString());
        it.value()->style()->polish(it.value());
    }
    m_previous->setEnabled(m_index > 0);
    m_next->setEnabled(m_index + 1 < m_songs.size());
    m_cover->setImage(QImage());
    m_hint->hide();

    // The songs of the iTunes library carry its positive track IDs; the own ones are 0 and below.
    const bool iTunes = s.songID() > 0;
    QPointer<SongInfo> self(this);
    const quint64 generation = m_generation;
    const QString path = s.URL();
    QThreadPool::globalInstance()->start([self, generation, path, iTunes] {
        const FileFacts facts = readFileFacts(path, !iTunes);
        QMetaObject::invokeMethod(qApp, [self, generation, facts, iTunes] {
            if (!self || self->m_generation != generation)
                return;
            self->m_cover->setImage(facts.cover);
            for (auto it = self->m_fields.cbegin(); it != self->m_fields.cend(); ++it) {
                const bool readOnly = !facts.supportedKeys.contains(fileKeyOf(it.key()));
                it.value()->setReadOnly(readOnly);
                // A tag the file cannot hold reads as a dash, not as a hole in the form.
                it.value()->setPlaceholderText(readOnly ? QStringLiteral("\u2014") : QString());
                it.value()->style()->polish(it.value());
            }
            if (iTunes || facts.supportedKeys.isEmpty()) {
                self->m_hint->setText(
                    VEKLocalizedString(iTunes ? "SongInfo_iTunesSong" : "SongInfo_tagsUnsupported"));
                self->m_hint->show();
            }
            emit self->fileFactsLoaded();
        });
    });
}

void SongInfo::saveChanges()
{
    const QVariantMap metadata = metadataFromFields();
    setHasChanges(false);
    QPointer<SongInfo> self(this);
    const SongPtr song = m_song;
    m_delegate->setMetadataForSongInBackground(metadata, song, [self, song](bool ok) {
        if (!self)
            return;
        // Show what the file holds now, unless the user has moved on or edits again.
        if (ok && self->m_song == song && !self->m_hasChanges)
            self->update();
        emit self->saved(ok);
    });
}

int SongInfo::confirmSave()
{
    QMessageBox box(this);
    box.setIcon(QMessageBox::Question);
    box.setWindowTitle(QStringLiteral("Quivera"));
    box.setWindowModality(Qt::WindowModal);
    box.setText(VEKLocalizedString("SongInfo_confirmSave").arg(m_song->name()));
    box.setInformativeText(VEKLocalizedString("SongInfo_confirmSave_message"));
    QPushButton *save =
        box.addButton(VEKLocalizedString("SongInfo_confirmSave_save"), QMessageBox::AcceptRole);
    QPushButton *dontSave =
        box.addButton(VEKLocalizedString("SongInfo_confirmSave_dontSave"), QMessageBox::DestructiveRole);
    QPushButton *cancel =
        box.addButton(VEKLocalizedString("SongInfo_confirmSave_cancel"), QMessageBox::RejectRole);
    box.setDefaultButton(save);
    box.setEscapeButton(cancel);
    box.exec();
    if (box.clickedButton() == save)
        return 1;
    if (box.clickedButton() == dontSave)
        return 0;
    return -1;
}

void SongInfo::walk(qsizetype to)
{
    if (to < 0 || to >= m_songs.size())
        return;
    if (m_hasChanges) {
        const int answer = confirmSave();
        if (answer < 0)
            return;
        if (answer == 1)
            saveChanges();
    }
    setSongAt(to);
}

void SongInfo::previous()
{
    walk(m_index - 1);
}

void SongInfo::next()
{
    walk(m_index + 1);
}

void SongInfo::finish()
{
    if (m_hasChanges) {
        const int answer = confirmSave();
        if (answer < 0)
            return;
        if (answer == 1)
            saveChanges();
    }
    m_closing = true;
    QDialog::reject();
}

void SongInfo::reject()
{
    finish();
}

void SongInfo::fitTitles()
{
    // The name in two lines at most; the artist and album on one line when they fit, else one
    // line each, so a long name never pushes the sheet's form off the screen.
    const int width = m_title->contentsRect().width();
    m_title->setText(elidedLines(m_fullTitle, m_title->font(), width, 2));
    m_title->setToolTip(m_title->text() == m_fullTitle ? QString() : m_fullTitle);
    const QString joined = m_byLine.join(QStringLiteral("  \u00b7  "));
    const QFontMetrics metrics(m_subtitle->font());
    if (metrics.horizontalAdvance(joined) <= width) {
        m_subtitle->setText(joined);
    } else {
        QStringList lines;
        for (const QString &part : std::as_const(m_byLine))
            lines.append(metrics.elidedText(part, Qt::ElideRight, width));
        m_subtitle->setText(lines.join(u'\n'));
    }
    m_subtitle->setToolTip(m_byLine.join(u'\n'));
}

void SongInfo::resizeEvent(QResizeEvent *event)
{
    QDialog::resizeEvent(event);
    fitTitles();
}

void SongInfo::paintEvent(QPaintEvent *event)
{
    QDialog::paintEvent(event);
    QPainter painter(this);
    painter.setPen(QColor(0x2f, 0x37, 0x42));
    painter.drawRect(rect().adjusted(0, 0, -1, -1));
}

void SongInfo::closeEvent(QCloseEvent *event)
{
    if (m_closing || !m_hasChanges) {
        QDialog::closeEvent(event);
        return;
    }
    event->ignore();
    finish();
}
