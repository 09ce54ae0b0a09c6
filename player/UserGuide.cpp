#include "UserGuide.h"

#include "app/Application.h"
#include "core/VEKLog.h"
#include "core/VEKLocalizedString.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDesktopServices>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QMessageBox>
#include <QPageLayout>
#include <QPageSize>
#include <QPainter>
#include <QPdfWriter>
#include <QPointer>
#include <QSaveFile>
#include <QStandardPaths>
#include <QSvgRenderer>
#include <QTextDocument>
#include <QThreadPool>
#include <QUrl>

namespace {
const QString kIconName = QStringLiteral("org.quivera.Quivera.svg");
}

UserGuide::UserGuide(QObject *parent) : QObject(parent) {}

QString UserGuide::html()
{
    QFile file(QStringLiteral(":/guide/QuiveraUserGuide.html"));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.readAll());
}

bool UserGuide::writePdf(const QString &path, QString *problem)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    // Written beside the target and moved over it whole: a reader never sees half a guide.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        if (problem)
            *problem = file.errorString();
        return false;
    }
    {
        QPdfWriter writer(&file);
        writer.setTitle(QStringLiteral("Quivera User Guide"));
        writer.setCreator(QStringLiteral("Quivera %1").arg(Application::version()));
        writer.setPageLayout(QPageLayout(QPageSize(QPageSize::A4), QPageLayout::Portrait,
                                         QMarginsF(18, 18, 18, 18), QPageLayout::Millimeter));
        writer.setResolution(300);

        QTextDocument document;
        // The icon as a picture sharp at print resolution; the EPUB carries the SVG itself.
        QImage icon(384, 384, QImage::Format_ARGB32_Premultiplied);
        icon.fill(Qt::transparent);
        {
            QSvgRenderer svg(QStringLiteral(":/icons/") + kIconName);
            QPainter painter(&icon);
            svg.render(&painter);
        }
        document.addResource(QTextDocument::ImageResource, QUrl(kIconName), icon);
        document.setHtml(html());
        document.print(&writer);
    }
    if (!file.commit()) {
        if (problem)
            *problem = file.errorString();
        return false;
    }
    return true;
}

QString UserGuide::pdfPath()
{
    // Named by the text it was made from, so a changed guide is typeset anew.
    const QByteArray digest = QCryptographicHash::hash(html().toUtf8(), QCryptographicHash::Sha1).toHex().left(10);
    return QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation)
           + QStringLiteral("/Quivera/QuiveraUserGuide-%1-%2.pdf").arg(Application::version(), QString::fromLatin1(digest));
}

QString UserGuide::epubPath()
{
    const QString path = QDir::cleanPath(QCoreApplication::applicationDirPath()
                                         + QStringLiteral("/../share/quivera/QuiveraUserGuide.epub"));
    return QFileInfo::exists(path) ? path : QString();
}

void UserGuide::openAsPdf()
{
    const QString path = pdfPath();
    if (QFileInfo::exists(path)) {
        emit pdfReady(path, {});
        QDesktopServices::openUrl(QUrl::fromLocalFile(path));
        return;
    }
    if (m_typesetting)
        return;
    m_typesetting = true;
    // Typesetting takes a good part of a second: a worker does it, the window stays live.
    QPointer<UserGuide> self(this);
    QThreadPool::globalInstance()->start([self, path] {
        QString problem;
        const bool written = writePdf(path, &problem);
        QMetaObject::invokeMethod(qApp, [self, path, written, problem] {
            if (!self)
                return;
            self->m_typesetting = false;
            if (!written) {
                VEKLog(QStringLiteral("The user guide could not be written to %1: %2").arg(path, problem));
                emit self->pdfReady({}, problem);
                return;
            }
            emit self->pdfReady(path, {});
            QDesktopServices::openUrl(QUrl::fromLocalFile(path));
        });
    });
}

void UserGuide::openAsBook(QWidget *parent)
{
    // Like the platform's script, whatever the reader makes of it is neither asked nor told.
    if (const QString path = epubPath(); !path.isEmpty())
        QDesktopServices::openUrl(QUrl::fromLocalFile(path));
    QMessageBox box(parent);
    box.setIcon(QMessageBox::Information);
    box.setText(VEKLocalizedString("Controller_openUserGuideAsiBooks_title"));
    box.setInformativeText(VEKLocalizedString("Controller_openUserGuideAsiBooks_message"));
    box.setStandardButtons(QMessageBox::Ok);
    box.exec();
}
