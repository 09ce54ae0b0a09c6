#pragma once

#include <QMainWindow>

class PlayerButton;
class PlayerRepeatButton;
class QLabel;
class QLineEdit;
class QProgressBar;
class QSplitter;
class QToolButton;
class QVBoxLayout;

// The library window's layout and look (the "Library" layout): a left column with the playlist
// sidebar over the artwork panel and a strip of buttons, a splitter, and a right column with a
// header (the progress strip and the search field), the song table and its footer line. Dark,
// in the player's panel colour, accent and font. The LibraryController fills it and decides
// everything; the window only reports that it closes. Main thread only.
class LibraryWindow : public QMainWindow {
    Q_OBJECT
    Q_PROPERTY(int artworkHeight READ artworkHeight WRITE setArtworkHeight)
public:
    explicit LibraryWindow(QWidget *parent = nullptr);

    QSplitter *splitter() const { return m_splitter; }
    QWidget *leftColumn() const { return m_leftColumn; }
    // The sidebar goes here (replacing what is there).
    void setSidebar(QWidget *sidebar);
    QWidget *sidebar() const { return m_sidebar; }
    // The artwork panel's content goes here; its height is animated by the controller.
    void setArtwork(QWidget *artwork);
    QWidget *artworkPanel() const { return m_artworkPanel; }
    int artworkHeight() const;
    void setArtworkHeight(int height);
    // The song table and the footer line under it.
    void setTable(QWidget *table, QWidget *footer);

    PlayerButton *shuffleButton() const { return m_shuffle; }
    PlayerRepeatButton *repeatButton() const { return m_repeat; }
    PlayerButton *artworkButton() const { return m_artwork; }
    QLineEdit *searchField() const { return m_search; }
    QWidget *progressView() const { return m_progressView; }
    QLabel *progressText() const { return m_progressText; }
    QProgressBar *progressIndicator() const { return m_progressIndicator; }
    QToolButton *progressStopButton() const { return m_progressStop; }

    // The look of every part, as a style sheet over the player's colours.
    static QString styleSheet();

signals:
    void closing();

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    QSplitter *m_splitter;
    QWidget *m_leftColumn;
    QVBoxLayout *m_leftLayout;
    QWidget *m_sidebar;
    QWidget *m_artworkPanel;
    QVBoxLayout *m_artworkLayout;
    QVBoxLayout *m_rightLayout;
    PlayerButton *m_shuffle;
    PlayerRepeatButton *m_repeat;
    PlayerButton *m_artwork;
    QLineEdit *m_search;
    QWidget *m_progressView;
    QLabel *m_progressText;
    QProgressBar *m_progressIndicator;
    QToolButton *m_progressStop;
};
