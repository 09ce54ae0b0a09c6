#pragma once

#include <QDialog>

class QTabWidget;

// The About window: the program's name, version and purpose, its credits, and the libraries it
// is built on with their versions and licences. One per process, made on first use and then
// shown again.
class AboutWindow : public QDialog {
    Q_OBJECT
public:
    enum class Page { About, Credits, Licences };

    explicit AboutWindow(QWidget *parent = nullptr);

    // Shows the window at `page` and brings it to the front.
    void showPage(Page page);

    // The libraries as the Licences page lists them: name, version in use where the library
    // tells, licence.
    struct Library {
        QString name;
        QString version;
        QString licence;
        QString purpose;
    };
    static QList<Library> libraries();

private:
    QTabWidget *m_tabs;
};
