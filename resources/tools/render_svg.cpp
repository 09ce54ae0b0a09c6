// Build tool: renders an SVG into square PNGs, one per size given.
//   render_svg IN.svg OUT_DIR SIZE...   writes OUT_DIR/SIZExSIZE/apps/NAME.png
#include <QDir>
#include <QFileInfo>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QSvgRenderer>
#include <cstdio>

int main(int argc, char **argv)
{
    if (argc < 4) {
        std::fprintf(stderr, "usage: render_svg IN.svg OUT_DIR SIZE...\n");
        return 2;
    }
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    const QString in = QString::fromLocal8Bit(argv[1]);
    const QString outDir = QString::fromLocal8Bit(argv[2]);
    QSvgRenderer svg(in);
    if (!svg.isValid()) {
        std::fprintf(stderr, "render_svg: %s is not a usable SVG\n", argv[1]);
        return 1;
    }
    for (int i = 3; i < argc; ++i) {
        const int size = std::atoi(argv[i]);
        QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        QPainter painter(&image);
        painter.setRenderHint(QPainter::Antialiasing);
        svg.render(&painter);
        painter.end();
        const QString dir = QStringLiteral("%1/%2x%2/apps").arg(outDir).arg(size);
        QDir().mkpath(dir);
        const QString out = dir + u'/' + QFileInfo(in).completeBaseName() + QStringLiteral(".png");
        if (!image.save(out)) {
            std::fprintf(stderr, "render_svg: cannot write %s\n", qPrintable(out));
            return 1;
        }
    }
    return 0;
}
