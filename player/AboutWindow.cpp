#include "AboutWindow.h"

#include "app/Application.h"
#include "core/VEKLocalizedString.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QPainter>
#include <QPixmap>
#include <QSvgRenderer>
#include <QTabWidget>
#include <QTextBrowser>
#include <QVBoxLayout>

#include <alsa/asoundlib.h>
#include <soxr.h>
#include <sqlite3.h>
#include <taglib/taglib.h>
extern "C" {
#include <libavutil/avutil.h>
}

namespace {
QString escaped(const QString &text) { return text.toHtmlEscaped(); }

QWidget *aboutPage()
{
    auto *page = new QWidget;
    auto *layout = new QVBoxLayout(page);
    layout->addStretch();
    // Drawn at the screen's pixel ratio so it is sharp on a dense display.
    const qreal ratio = page->devicePixelRatioF();
    QPixmap pixmap(QSize(128, 128) * ratio);
    pixmap.fill(Qt::transparent);
    {
        QPainter painter(&pixmap);
        QSvgRenderer(QStringLiteral(":/icons/org.quivera.Quivera.svg")).render(&painter);
    }
    pixmap.setDevicePixelRatio(ratio);
    auto *icon = new QLabel;
    icon->setPixmap(pixmap);
    layout->addWidget(icon, 0, Qt::AlignHCenter);
    auto *name = new QLabel(QStringLiteral("<h1>Quivera</h1>"));
    name->setAlignment(Qt::AlignHCenter);
    layout->addWidget(name);
    auto *version = new QLabel(VEKLocalizedString("About_version").arg(Application::version()));
    version->setAlignment(Qt::AlignHCenter);
    version->setTextInteractionFlags(Qt::TextSelectableByMouse);
    layout->addWidget(version);
    auto *blurb = new QLabel(VEKLocalizedString("About_description"));
    blurb->setWordWrap(true);
    blurb->setAlignment(Qt::AlignHCenter);
    layout->addWidget(blurb);
    layout->addStretch();
    return page;
}

QTextBrowser *browser(const QString &html)
{
    auto *b = new QTextBrowser;
    b->setOpenExternalLinks(true);
    b->setHtml(html);
    return b;
}
} // namespace

QList<AboutWindow::Library> AboutWindow::libraries()
{
    const QString taglib = QStringLiteral("%1.%2.%3")
                               .arg(TAGLIB_MAJOR_VERSION)
                               .arg(TAGLIB_MINOR_VERSION)
                               .arg(TAGLIB_PATCH_VERSION);
    return {
        {QStringLiteral("Qt"), QString::fromLatin1(qVersion()), QStringLiteral("LGPL-3.0-only"),
         VEKLocalizedString("About_qt")},
        {QStringLiteral("FFmpeg"), QString::fromLatin1(av_version_info()),
         QStringLiteral("LGPL-2.1-or-later"), VEKLocalizedString("About_ffmpeg")},
        {QStringLiteral("TagLib"), taglib, QStringLiteral("LGPL-2.1-only or MPL-1.1"),
         VEKLocalizedString("About_taglib")},
        {QStringLiteral("soxr"), QString::fromLatin1(soxr_version()), QStringLiteral("LGPL-2.1-or-later"),
         VEKLocalizedString("About_soxr")},
        {QStringLiteral("SQLite"), QString::fromLatin1(sqlite3_libversion()), QStringLiteral("Public domain"),
         VEKLocalizedString("About_sqlite")},
        {QStringLiteral("libplist"), QString(), QStringLiteral("LGPL-2.1-or-later"),
         VEKLocalizedString("About_libplist")},
        {QStringLiteral("lilv"), QString(), QStringLiteral("ISC"), VEKLocalizedString("About_lilv")},
        {QStringLiteral("Avahi"), QString(), QStringLiteral("LGPL-2.1-or-later"),
         VEKLocalizedString("About_avahi")},
        {QStringLiteral("ALSA library"), QString::fromLatin1(snd_asoundlib_version()),
         QStringLiteral("LGPL-2.1-or-later"), VEKLocalizedString("About_alsa")},
        {QStringLiteral("Roboto"), QString(), QStringLiteral("Apache-2.0"), VEKLocalizedString("About_roboto")},
    };
}

AboutWindow::AboutWindow(QWidget *parent) : QDialog(parent), m_tabs(new QTabWidget(this))
{
    setWindowTitle(VEKLocalizedString("About_title"));
    setObjectName(QStringLiteral("AboutWindow"));

    QString credits = QStringLiteral("<h3>%1</h3><p>%2</p><h3>%3</h3><ul>")
                          .arg(escaped(VEKLocalizedString("About_creditsTitle")),
                               escaped(VEKLocalizedString("About_creditsText")),
                               escaped(VEKLocalizedString("About_builtWith")));
    QString licences = QStringLiteral("<p>%1</p><table cellpadding='4'>")
                           .arg(escaped(VEKLocalizedString("About_licencesIntro")));
    for (const Library &library : libraries()) {
        credits += QStringLiteral("<li><b>%1</b>: %2</li>").arg(escaped(library.name), escaped(library.purpose));
        licences += QStringLiteral("<tr><td><b>%1</b></td><td>%2</td><td>%3</td></tr>")
                        .arg(escaped(library.name), escaped(library.version), escaped(library.licence));
    }
    credits += QStringLiteral("</ul>");
    licences += QStringLiteral("</table><p>%1</p>").arg(escaped(VEKLocalizedString("About_licencesTexts")));

    m_tabs->addTab(aboutPage(), VEKLocalizedString("About_aboutTab"));
    m_tabs->addTab(browser(credits), VEKLocalizedString("About_creditsTab"));
    m_tabs->addTab(browser(licences), VEKLocalizedString("About_licencesTab"));

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Close);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::close);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_tabs);
    layout->addWidget(buttons);
    resize(520, 430);
}

void AboutWindow::showPage(Page page)
{
    m_tabs->setCurrentIndex(int(page));
    show();
    raise();
    activateWindow();
}
