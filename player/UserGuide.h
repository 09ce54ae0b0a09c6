#pragma once

#include <QObject>
#include <QString>

class QWidget;

// The user guide. One XHTML text in the resources is the source of both forms: a PDF that the
// program typesets itself with Qt's PDF writer, and an EPUB made at build time for book
// readers. Either form is opened with the desktop's default program. Main thread, except
// writePdf.
class UserGuide : public QObject {
    Q_OBJECT
public:
    explicit UserGuide(QObject *parent = nullptr);

    // The guide's XHTML from the resources.
    static QString html();
    // Typesets the guide into a PDF at `path` (A4). Safe on any thread. False with `problem`
    // when the file cannot be written.
    static bool writePdf(const QString &path, QString *problem = nullptr);
    // Where the PDF of this guide is kept: the user's cache folder, under the version and a
    // digest of the text.
    static QString pdfPath();
    // The EPUB made at build time: beside the program in ../share/quivera (the build tree and an
    // installation alike). Empty when it is not there.
    static QString epubPath();

    // Opens the PDF, typesetting it first on a worker when this version has none yet.
    void openAsPdf();
    // Hands the EPUB to the desktop's book reader, then says where to find it in a modal alert
    // over `parent`.
    void openAsBook(QWidget *parent);

signals:
    // The PDF is at `path`, about to be opened; empty with `problem` when it could not be made.
    void pdfReady(const QString &path, const QString &problem);

private:
    bool m_typesetting = false;
};
