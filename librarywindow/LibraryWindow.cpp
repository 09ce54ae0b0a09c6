#include "LibraryWindow.h"

#include "core/VEKLocalizedString.h"
#include "player/PlayerArt.h"
#include "player/PlayerButton.h"
#include "player/PlayerRepeatButton.h"

#include <QCloseEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QScreen>
#include <QSplitter>
#include <QToolButton>
#include <QVBoxLayout>

namespace {
PlayerButton *imageButton(PlayerButton *button, const char *image, quint32 states, const char *name)
{
    button->setImageName(QString::fromLatin1(image), states);
    button->setFixedSize(30, 30);
    button->setAccessibleName(VEKLocalizedString(name));
    button->setToolTip(VEKLocalizedString(name));
    return button;
}
} // namespace

LibraryWindow::LibraryWindow(QWidget *parent) : QMainWindow(parent)
{
    setObjectName(QStringLiteral("libraryWindow"));
    setWindowTitle(VEKLocalizedString("Library_windowTitle"));
    PlayerArt::loadFonts();
    setFont(PlayerArt::font(PlayerArt::Weight::Regular, 14));
    setStyleSheet(styleSheet());
    // The first size, within what the screen leaves free.
    QSize first(1180, 720);
    if (const QScreen *screen = this->screen())
        first = first.boundedTo(screen->availableGeometry().size() - QSize(40, 60));
    resize(first);
    setMinimumSize(720, 420);

    m_splitter = new QSplitter(Qt::Horizontal);
    m_splitter->setObjectName(QStringLiteral("librarySplitter"));
    m_splitter->setChildrenCollapsible(false);
    m_splitter->setHandleWidth(1);

    // The left column: sidebar, artwork, buttons.
    m_leftColumn = new QWidget;
    m_leftColumn->setObjectName(QStringLiteral("leftColumn"));
    m_leftColumn->setMinimumWidth(150);
    m_leftColumn->setMaximumWidth(320);
    m_leftLayout = new QVBoxLayout(m_leftColumn);
    m_leftLayout->setContentsMargins(0, 0, 0, 0);
    m_leftLayout->setSpacing(0);
    m_sidebar = new QWidget;
    m_sidebar->setObjectName(QStringLiteral("sidebarPlaceholder"));
    m_leftLayout->addWidget(m_sidebar, 1);
    m_artworkPanel = new QWidget;
    m_artworkPanel->setObjectName(QStringLiteral("artworkPanel"));
    m_artworkPanel->setFixedHeight(0);
    m_artworkLayout = new QVBoxLayout(m_artworkPanel);
    m_artworkLayout->setContentsMargins(0, 0, 0, 0);
    m_artworkLayout->setSpacing(0);
    m_leftLayout->addWidget(m_artworkPanel);
    auto *leftFooter = new QWidget;
    leftFooter->setObjectName(QStringLiteral("leftColumnFooter"));
    leftFooter->setFixedHeight(36);
    auto *buttons = new QHBoxLayout(leftFooter);
    buttons->setContentsMargins(8, 3, 8, 3);
    buttons->setSpacing(4);
    m_shuffle = imageButton(new PlayerButton, "Player_shuffle", 2, "Library_shuffle");
    m_repeat = static_cast<PlayerRepeatButton *>(
        imageButton(new PlayerRepeatButton, "Player_repeat", 3, "Library_repeat"));
    m_artwork = imageButton(new PlayerButton, "Library_artwork", 2, "Library_artwork");
    buttons->addWidget(m_shuffle);
    buttons->addWidget(m_repeat);
    buttons->addStretch(1);
    buttons->addWidget(m_artwork);
    m_leftLayout->addWidget(leftFooter);

    // The right column: header, table, footer.
    auto *right = new QWidget;
    right->setObjectName(QStringLiteral("rightColumn"));
    m_rightLayout = new QVBoxLayout(right);
    m_rightLayout->setContentsMargins(0, 0, 0, 0);
    m_rightLayout->setSpacing(0);
    auto *header = new QWidget;
    header->setObjectName(QStringLiteral("libraryHeader"));
    header->setFixedHeight(44);
    auto *headerLayout = new QHBoxLayout(header);
    headerLayout->setContentsMargins(12, 6, 10, 6);
    headerLayout->setSpacing(8);

    m_progressView = new QWidget;
    m_progressView->setObjectName(QStringLiteral("progressView"));
    auto *progress = new QHBoxLayout(m_progressView);
    progress->setContentsMargins(0, 0, 0, 0);
    progress->setSpacing(8);
    m_progressText = new QLabel;
    m_progressText->setObjectName(QStringLiteral("progressText"));
    m_progressText->setMinimumWidth(60);
    m_progressIndicator = new QProgressBar;
    m_progressIndicator->setRange(0, 1000);
    m_progressIndicator->setTextVisible(false);
    m_progressIndicator->setFixedSize(160, 6);
    m_progressStop = new QToolButton;
    m_progressStop->setObjectName(QStringLiteral("progressStop"));
    m_progressStop->setText(QStringLiteral("\u2715"));
    m_progressStop->setAccessibleName(VEKLocalizedString("Library_progressStop"));
    m_progressStop->setToolTip(VEKLocalizedString("Library_progressStop"));
    m_progressStop->setAutoRaise(true);
    progress->addWidget(m_progressText, 1);
    progress->addWidget(m_progressIndicator);
    progress->addWidget(m_progressStop);
    m_progressView->hide();
    headerLayout->addWidget(m_progressView, 1);
    headerLayout->addStretch(0);

    m_search = new QLineEdit;
    m_search->setObjectName(QStringLiteral("searchField"));
    m_search->setAccessibleName(VEKLocalizedString("Library_search"));
    m_search->setClearButtonEnabled(true);
    m_search->setFixedWidth(260);
    headerLayout->addWidget(m_search);
    m_rightLayout->addWidget(header);

    m_splitter->addWidget(m_leftColumn);
    m_splitter->addWidget(right);
    m_splitter->setStretchFactor(0, 0);
    m_splitter->setStretchFactor(1, 1);
    setCentralWidget(m_splitter);
}

void LibraryWindow::setSidebar(QWidget *sidebar)
{
    const int at = m_leftLayout->indexOf(m_sidebar);
    m_leftLayout->removeWidget(m_sidebar);
    if (m_sidebar->objectName() == QLatin1String("sidebarPlaceholder"))
        delete m_sidebar;
    m_sidebar = sidebar;
    m_leftLayout->insertWidget(at, sidebar, 1);
}

void LibraryWindow::setArtwork(QWidget *artwork)
{
    while (QLayoutItem *item = m_artworkLayout->takeAt(0)) {
        delete item->widget();
        delete item;
    }
    m_artworkLayout->addWidget(artwork);
}

int LibraryWindow::artworkHeight() const
{
    return m_artworkPanel->height();
}

void LibraryWindow::setArtworkHeight(int height)
{
    m_artworkPanel->setFixedHeight(std::max(0, height));
}

void LibraryWindow::setTable(QWidget *table, QWidget *footer)
{
    m_rightLayout->addWidget(table, 1);
    footer->setFixedHeight(26);
    m_rightLayout->addWidget(footer);
}

void LibraryWindow::closeEvent(QCloseEvent *event)
{
    emit closing();
    QMainWindow::closeEvent(event);
}

QString LibraryWindow::styleSheet()
{
    const QString accent = PlayerArt::accent().name();
    QString sheet = QStringLiteral(R"(
QWidget { font-family: "FAMILY"; }
#libraryWindow, #librarySplitter, #rightColumn { background: #0c0f14; }
QMenuBar { background: #0c0f14; color: #c9d6e3; border-bottom: 1px solid #1d232c; }
QMenuBar::item { padding: 4px 10px; background: transparent; }
QMenuBar::item:selected { background: #1c2633; color: ACCENT; }
#leftColumn { background: #0f1319; }
#sidebarPlaceholder { background: #0f1319; }
#artworkPanel { background: #0b0e12; border-top: 1px solid #1d232c; }
#leftColumnFooter { background: #0c0f14; border-top: 1px solid #1d232c; }
QSplitter::handle { background: #1d232c; }
#libraryHeader { background: qlineargradient(x1:0, y1:0, x2:0, y2:1, stop:0 #171c24, stop:1 #11151b);
                 border-bottom: 1px solid #1d232c; }
#progressText { color: #9fb6cc; font-size: 13px; }
QProgressBar { background: #262f3b; border: none; border-radius: 3px; }
QProgressBar::chunk { background: ACCENT; border-radius: 3px; }
#progressStop { color: #8aa0b5; border: none; font-size: 12px; padding: 2px 4px; }
#progressStop:hover { color: ACCENT; }
#searchField { background: #080a0e; color: #dbe6f1; border: 1px solid #263041; border-radius: 13px;
               padding: 3px 10px 3px 4px; font-size: 13px; min-height: 20px;
               selection-background-color: #2c4a6b; }
#searchField:focus { border: 1px solid ACCENT; }
#songTable { background: #0e1217; alternate-background-color: #121720; color: #d4dfea;
             selection-background-color: #22405e; selection-color: #ffffff; border: none;
             font-size: 14px; outline: 0; }
#songTable::item { padding: 0 6px; border: none; }
#songTable::item:selected:!active { background: #1b2a3a; }
QHeaderView { background: #12161c; }
QHeaderView::section { background: qlineargradient(x1:0, y1:0, x2:0, y2:1, stop:0 #181d25, stop:1 #12161c);
                       color: #8fa6bd; border: none; border-right: 1px solid #1f2630;
                       border-bottom: 1px solid #232b36; padding: 0 0 0 9px; font-size: 12px; }
QHeaderView::section:hover { color: ACCENT; }
QHeaderView::up-arrow, QHeaderView::down-arrow { width: 9px; height: 9px; subcontrol-position: center right; }
#songTableFooter { background: #0c0f14; color: #7f95aa; border-top: 1px solid #1d232c; font-size: 12px; }
QScrollBar:vertical { background: #0e1217; width: 11px; margin: 0; }
QScrollBar::handle:vertical { background: #2a3441; border-radius: 4px; min-height: 30px; margin: 2px; }
QScrollBar::handle:vertical:hover { background: #3a4859; }
QScrollBar:horizontal { background: #0e1217; height: 11px; margin: 0; }
QScrollBar::handle:horizontal { background: #2a3441; border-radius: 4px; min-width: 30px; margin: 2px; }
QScrollBar::add-line, QScrollBar::sub-line { width: 0; height: 0; }
QScrollBar::add-page, QScrollBar::sub-page { background: none; }
QToolTip { background: #1a2029; color: #dbe6f1; border: 1px solid #2c3644; }
)");
    sheet.replace(QStringLiteral("ACCENT"), accent);
    sheet.replace(QStringLiteral("FAMILY"), PlayerArt::fontFamily());
    return sheet;
}
