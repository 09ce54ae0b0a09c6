#include "ITunesPreferencesPane.h"

#include "ITunesLibraryFileFilter.h"
#include "PreferencesSection.h"
#include "settings/UserDefaults.h"

#include <QCheckBox>
#include <QDir>
#include <QFileDialog>
#include <QLabel>
#include <QPushButton>

namespace {
const QString kAccess = QStringLiteral("accessiTunesLibrary");
const QString kLocation = QStringLiteral("iTunesLibraryLocation");
}

ITunesPreferencesPane::ITunesPreferencesPane(UserDefaults &defaults, std::function<void()> rescan,
                                             QWidget *parent)
    : PreferencesPane(defaults, parent), m_rescan(std::move(rescan))
{
    PreferencesSection *library = addSection(QStringLiteral("iTunes library"));
    m_access = new QCheckBox(QStringLiteral("Show the songs and playlists of the iTunes library"), this);
    m_access->setObjectName(QStringLiteral("accessButton"));
    library->addRow(
        QString(), m_access,
        QStringLiteral("They are read, never changed. Turning this off takes them out of the sidebar."));
    m_location = new QLabel(this);
    m_location->setObjectName(QStringLiteral("locationText"));
    m_location->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto *change = new QPushButton(QStringLiteral("Choose…"), this);
    change->setObjectName(QStringLiteral("changeLocationButton"));
    change->setAccessibleName(QStringLiteral("Choose the iTunes library"));
    library->addRow(QStringLiteral("Library folder"), {m_location, change},
                    QStringLiteral("Pick the folder's “iTunes Music Library.xml” or “iTunes Library.xml”."));
    finishLayout();

    connect(m_access, &QCheckBox::clicked, this, [this](bool on) {
        this->defaults().setValue(kAccess, on);
        if (m_rescan)
            m_rescan();
    });
    connect(change, &QPushButton::clicked, this, &ITunesPreferencesPane::changeLocation);
}

QString ITunesPreferencesPane::subtitle() const
{
    return QStringLiteral("Play what an iTunes library holds, beside your own.");
}

QString ITunesPreferencesPane::folderText(const QString &location)
{
    QString folder = location.left(std::max<qsizetype>(0, location.lastIndexOf(u'/')));
    if (folder == u'~' || folder.startsWith(QLatin1String("~/")))
        folder = QDir::homePath() + folder.mid(1);
    return folder + u'/';
}

void ITunesPreferencesPane::updateControls()
{
    m_access->setChecked(defaults().boolForKey(kAccess));
    m_location->setText(folderText(defaults().stringForKey(kLocation)));
}

QFileDialog *ITunesPreferencesPane::makeChooser()
{
    auto *chooser = new QFileDialog(window(), QStringLiteral("Choose the iTunes Library"));
    // Our own dialog: the desktop's may not honour a filter of exact names.
    chooser->setOption(QFileDialog::DontUseNativeDialog);
    chooser->setFileMode(QFileDialog::ExistingFile);
    // A filter's patterns are split at spaces, so the space in each name is matched by '?'; the
    // proxy then keeps the two exact names only.
    chooser->setNameFilter(QStringLiteral("iTunes library (iTunes?Music?Library.xml iTunes?Library.xml)"));
    chooser->setProxyModel(new ITunesLibraryFileFilter(chooser));
    chooser->setDirectory(folderText(defaults().stringForKey(kLocation)));
    return chooser;
}

void ITunesPreferencesPane::changeLocation()
{
    QFileDialog *chooser = makeChooser();
    chooser->setAttribute(Qt::WA_DeleteOnClose);
    connect(chooser, &QFileDialog::fileSelected, this, &ITunesPreferencesPane::locationChosen);
    chooser->open();
}

void ITunesPreferencesPane::locationChosen(const QString &path)
{
    QString stored = QDir::cleanPath(path);
    const QString home = QDir::homePath();
    if (stored == home || stored.startsWith(home + u'/'))
        stored = u'~' + stored.mid(home.size());
    defaults().setValue(kLocation, stored);
    if (m_rescan)
        m_rescan();
    updateControls();
}
