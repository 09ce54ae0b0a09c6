#include "AboutWindow.h"

#include "PlayerArt.h"
#include "app/Application.h"
#include "core/VEKLocalizedString.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QPainter>
#include <QPixmap>
#include <QSvgRenderer>
#include <QTabWidget>
#include <QTextBrowser>
#include <QTextDocument>
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
    layout->addSpacing(10);
    auto *name = new QLabel(QStringLiteral("Quivera"));
    name->setObjectName(QStringLiteral("aboutName"));
    name->setAlignment(Qt::AlignHCenter);
    layout->addWidget(name);
    auto *version = new QLabel(VEKLocalizedString("About_version").arg(Application::version()));
    version->setObjectName(QStringLiteral("aboutVersion"));
    version->setAlignment(Qt::AlignHCenter);
    version->setTextInteractionFlags(Qt::TextSelectableByMouse);
    layout->addWidget(version);
    layout->addSpacing(14);
    auto *blurb = new QLabel(VEKLocalizedString("About_description"));
    blurb->setObjectName(QStringLiteral("aboutBlurb"));
    blurb->setWordWrap(true);
    blurb->setAlignment(Qt::AlignHCenter);
    // Narrower than the window: a paragraph reads best in short lines.
    blurb->setFixedWidth(400);
    layout->addWidget(blurb, 0, Qt::AlignHCenter);
    layout->addStretch();
    return page;
}

// The player's dark panel, its font and accent: the tabs as one row of pills over a frameless
// page, the texts on the window's own ground, a button like the preferences' ones.
QString aboutStyle()
{
    return PlayerArt::styleSheet(QStringLiteral(R"(
* { font-family: "FAMILY"; font-size: 14px; color: #c9d6e3; }
#AboutWindow { background: #0c0f14; }
QTabWidget::pane { border: none; }
QTabWidget::tab-bar { alignment: center; }
QTabBar::tab { background: #131922; color: #8fa6bd; border: 1px solid #232c38; padding: 5px 18px;
               margin: 0 0 10px 0; min-width: 60px; }
QTabBar::tab:first { border-top-left-radius: 7px; border-bottom-left-radius: 7px; }
QTabBar::tab:last { border-top-right-radius: 7px; border-bottom-right-radius: 7px; }
QTabBar::tab:!first { border-left: none; }
QTabBar::tab:selected { background: #22344b; color: #ffffff; }
QTabBar::tab:hover:!selected { color: ACCENT; }
QTextBrowser { background: transparent; border: none; padding: 10px 14px; selection-background-color: #2b4261; }
#aboutName { color: #eef5fc; font-size: 30px; font-weight: 600; }
#aboutVersion { color: #7d8ea3; font-size: 13px; }
#aboutBlurb { color: #aebfd1; font-size: 15px; }
QPushButton { background: #1a212c; border: 1px solid #2a3442; border-radius: 7px; padding: 6px 22px;
              min-height: 20px; color: #d6e4f2; }
QPushButton:hover { border-color: #3d5068; }
QPushButton:focus { border-color: #6f9fd0; }
QPushButton:pressed { background: #24303f; }
PANEL_SCROLLBARS
)"));
}

// Headings in the accent, lists and tables with room between their lines.
const char *const kBrowserCss = "h3 { color: #b2d9ff; font-size: 16px; font-weight: 600; margin-top: 14px; }"
                                "li { margin-bottom: 3px; } td { padding: 3px 14px 3px 0; }"
                                "td.name { color: #eef5fc; font-weight: 600; } td.faint { color: #7d8ea3; }"
                                "p.note { color: #7d8ea3; }";

QTextBrowser *browser(const QString &html)
{
    auto *b = new QTextBrowser;
    b->setOpenExternalLinks(true);
    b->document()->setDefaultStyleSheet(QString::fromLatin1(kBrowserCss));
    b->document()->setDocumentMargin(6);
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
    setStyleSheet(aboutStyle());

    QString credits = QStringLiteral("<h3>%1</h3><p>%2</p><h3>%3</h3><ul>")
                          .arg(escaped(VEKLocalizedString("About_creditsTitle")),
                               escaped(VEKLocalizedString("About_creditsText")),
                               escaped(VEKLocalizedString("About_builtWith")));
    QString licences =
        QStringLiteral("<p>%1</p><table>").arg(escaped(VEKLocalizedString("About_licencesIntro")));
    for (const Library &library : libraries()) {
        credits += QStringLiteral("<li><b>%1</b>: %2</li>").arg(escaped(library.name), escaped(library.purpose));
        licences += QStringLiteral("<tr><td class='name'>%1</td><td class='faint'>%2</td><td>%3</td></tr>")
                        .arg(escaped(library.name), escaped(library.version), escaped(library.licence));
    }
    credits += QStringLiteral("</ul>");
    licences += QStringLiteral("</table><p class='note'>%1</p>")
                    .arg(escaped(VEKLocalizedString("About_licencesTexts")));

    m_tabs->addTab(aboutPage(), VEKLocalizedString("About_aboutTab"));
    m_tabs->addTab(browser(credits), VEKLocalizedString("About_creditsTab"));
    m_tabs->addTab(browser(licences), VEKLocalizedString("About_licencesTab"));

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Close);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::close);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 18, 20, 18);
    layout->setSpacing(12);
    layout->addWidget(m_tabs);
    layout->addWidget(buttons);
    resize(580, 540);
}

void AboutWindow::showPage(Page page)
{
    m_tabs->setCurrentIndex(int(page));
    show();
    raise();
    activateWindow();
}
