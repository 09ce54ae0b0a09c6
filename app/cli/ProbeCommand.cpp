#include "CliCommand.h"
#include "core/VEKPaths.h"

#include "io/VEKAudioFileReader.h"
#include "text/VEKFileSizeFormatter.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

QJsonObject probeJson(const VEKAudioFileReader &reader)
{
    QJsonObject o;
    o.insert(QStringLiteral("path"), VEKPaths::readable(reader.URL()));
    o.insert(QStringLiteral("format"), reader.format().isNull() ? QJsonValue() : QJsonValue(reader.format()));
    o.insert(QStringLiteral("sampleRate"), reader.sampleRate());
    o.insert(QStringLiteral("numberOfChannels"), qint64(reader.numberOfChannels()));
    o.insert(QStringLiteral("frames"), qint64(reader.frames()));
    o.insert(QStringLiteral("length"), reader.length());
    o.insert(QStringLiteral("fileSize"), qint64(reader.fileSize()));
    o.insert(QStringLiteral("bitrate"), qint64(reader.bitrate()));
    o.insert(QStringLiteral("bitDepth"), qint64(reader.bitDepth()));
    QJsonObject metadata;
    const QVariantMap &md = reader.metadata();
    for (auto it = md.cbegin(); it != md.cend(); ++it)
        if (it.key() != QLatin1String("imageData"))
            metadata.insert(it.key(), it.value().toString());
    o.insert(QStringLiteral("metadata"), metadata);
    return o;
}

void printFacts(QTextStream &out, const VEKAudioFileReader &reader)
{
    const auto line = [&out](const QString &label, const QString &value) {
        out << "  " << label.leftJustified(15) << value << '\n';
    };
    out << VEKPaths::readable(reader.URL()) << '\n';
    line(QStringLiteral("format"), reader.format().isNull() ? QStringLiteral("(another kind)") : reader.format());
    line(QStringLiteral("sample rate"), QStringLiteral("%1 Hz").arg(reader.sampleRate()));
    line(QStringLiteral("channels"), QString::number(reader.numberOfChannels()));
    line(QStringLiteral("frames"), QString::number(reader.frames()));
    line(QStringLiteral("length"), QStringLiteral("%1 s").arg(reader.length(), 0, 'f', 3));
    line(QStringLiteral("file size"), QStringLiteral("%1 (%2 bytes)").arg(VEKFileSizeFormatter().stringForByteCount(qint64(reader.fileSize()))).arg(reader.fileSize()));
    line(QStringLiteral("bit rate"), QStringLiteral("%1 bit/s").arg(reader.bitrate()));
    if (reader.bitDepth() != 0)
        line(QStringLiteral("bit depth"), QString::number(reader.bitDepth()));
    const QVariantMap &md = reader.metadata();
    for (auto it = md.cbegin(); it != md.cend(); ++it) {
        if (it.key() == QLatin1String("imageData"))
            line(QStringLiteral("picture"), QStringLiteral("%1 bytes").arg(it.value().toByteArray().size()));
        else
            line(it.key(), it.value().toString());
    }
}

int run(CliSession &session, const QStringList &argv, const CliCommand &command)
{
    const CliArguments args(argv, {}, {QStringLiteral("json")});
    if (const int rc = cliCheckArguments(session, args, command); rc >= 0)
        return rc;
    if (args.positional().isEmpty()) {
        session.fail(QStringLiteral("probe needs at least one file"));
        return 2;
    }
    // No launch: probing reads files only, never the library or the settings.
    const bool json = args.has(QStringLiteral("json"));
    QJsonArray array;
    bool first = true;
    for (const QString &path : args.positional()) {
        VEKError error;
        VEKAudioFileReader reader;
        if (!reader.initWithURL(path, &error)) {
            session.fail(error.text()); // the others still print; the run ends failed
            continue;
        }
        if (json) {
            array.append(probeJson(reader));
            continue;
        }
        if (!first)
            session.out() << '\n';
        first = false;
        printFacts(session.out(), reader);
    }
    if (json)
        session.out() << QString::fromUtf8(QJsonDocument(array).toJson(QJsonDocument::Indented));
    session.out().flush();
    return 0;
}

} // namespace

CliCommand probeCommand()
{
    CliCommand c;
    c.name = QStringLiteral("probe");
    c.summary = QStringLiteral("show what the player reads from audio files");
    c.help = QStringLiteral(
        "quivera-cli probe FILE... [--json]\n\n"
        "Opens each file as the player does and shows its format, sample rate, channels,\n"
        "length in frames and seconds, size, bit rate, bit depth and tags. Needs no library.\n"
        "A file that can't be read is named on standard error with the reason, and the run\n"
        "ends with status 1 after the other files.\n\n"
        "  --json   an array of objects (path, format, sampleRate, numberOfChannels, frames,\n"
        "           length, fileSize, bitrate, bitDepth, metadata) instead of text");
    c.run = [c](CliSession &s, const QStringList &a) { return run(s, a, c); };
    return c;
}
