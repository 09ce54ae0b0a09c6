#include "ConvertOperation.h"

#include "Database.h"
#include "core/VEKLocalizedString.h"
#include "db/VEKDatabase.h"
#include "db/VEKDatabaseQuery.h"
#include "dsp/VEKPlatformConverter.h"
#include "graph/APLConverterAudioProcessor.h"
#include "graph/IZOConverterAudioProcessor.h"
#include "graph/VEKAudioFileReaderAudioProcessor.h"
#include "graph/VEKAudioFileWriterAudioProcessor.h"
#include "graph/VEKAudioStream.h"
#include "graph/VEKDitherAudioProcessor.h"
#include "io/VEKAudioFileReader.h"
#include "io/VEKAudioFileWriter.h"
#include "settings/UserDefaults.h"
#include "settings/VEKSettingRange.h"
#include "settings/VEKPropertyList.h"

#include <QDateTime>
#include <QFileInfo>
#include <QMutexLocker>

#include <iterator>

namespace {

const QString errorDomain = QStringLiteral("ConvertOperation");

QDateTime nowToTheSecond()
{
    const qint64 ms = QDateTime::currentMSecsSinceEpoch();
    return QDateTime::fromMSecsSinceEpoch(ms - ms % 1000, Qt::UTC);
}

void tuneConverter(VEKAudioProcessor *processor)
{
    const UserDefaults &defaults = UserDefaults::standard();
    if (auto *tunable = qobject_cast<IZOConverterAudioProcessor *>(processor)) {
        // A value the converter refuses leaves its default; the conversion still runs.
        const QVariant steepness = defaults.value(QStringLiteral("resamplerFilterSteepness"));
        if (steepness.isValid())
            tunable->setFilterSteepness(quint32(steepness.toFloat()));
        const QVariant cutoff = defaults.value(QStringLiteral("resamplerCutoffScaling"));
        if (cutoff.isValid())
            tunable->setFilterCutoffScaling(cutoff.toFloat());
        const QVariant preRinging = defaults.value(QStringLiteral("resamplerPreringing"));
        if (preRinging.isValid())
            tunable->setFilterPreRinging(preRinging.toFloat());
    } else if (auto *platform = qobject_cast<APLConverterAudioProcessor *>(processor)) {
        switch (defaults.integerForKey(QStringLiteral("convertorType"))) {
        case 2: platform->setComplexity(VEKPlatformConverter::Linear); break;
        case 3: platform->setComplexity(VEKPlatformConverter::Mastering); break;
        default: platform->setComplexity(VEKPlatformConverter::Normal); break;
        }
        const QVariant quality = defaults.value(QStringLiteral("convertorQuality"));
        platform->setQuality(quality.isValid() ? quality.toFloat() : 1.0f);
    }
}

// The word lengths the Preferred format pane offers for each format (0: no preference); the
// formats without one take any value, as the writer ignores it.
QList<qint64> bitRangesOfFormat(quint64 format)
{
    switch (format) {
    case 0: case 1: case 2: return {0, 16, 24, 32};
    case 4: return {0, 16, 20, 24, 32};
    case 6: return {0, 16, 20, 24};
    default: return {0};
    }
}

} // namespace

ConvertOperation::ConvertOperation(const SongPtr &song, const PlaylistPtr &destination,
                                   const QString &libraryFile, QSet<qint64> knownIDs,
                                   IDSource ids, QObject *parent)
    : Operation(parent), m_song(song), m_destination(destination), m_libraryFile(libraryFile),
      m_knownIDs(std::move(knownIDs)), m_ids(std::move(ids))
{
}

ConvertOperation::~ConvertOperation() = default;

float ConvertOperation::progress() const
{
    QMutexLocker lock(&m_writerLock);
    return m_writer ? m_writer->progress() : Operation::progress();
}

QString ConvertOperation::writerFormatForIndex(quint64 format)
{
    const QStringList &formats = VEKAudioFileWriter::formats();
    static const char *const names[] = {"AIFF File", "WAVE File", "CAF File", "AAC Audio File",
                                        "Apple Lossless File", "Ogg Vorbis Audio File",
                                        "FLAC Audio File"};
    if (format >= std::size(names))
        return {};
    const QString name = QString::fromLatin1(names[format]);
    return formats.contains(name) ? name : QString();
}

QVariantMap ConvertOperation::streamDescription(VEKError *error)
{
    QVariantMap description =
        VEKPropertyList::readFile(QStringLiteral(":/ConvertOperationStream.plist"), error).toMap();
    if (description.isEmpty())
        return {};
    const bool tunable =
        UserDefaults::standard().integerForKey(QStringLiteral("convertorType")) == 1;
    const QString converterClass = tunable ? QStringLiteral("IZOConverterAudioProcessor")
                                           : QStringLiteral("APLConverterAudioProcessor");
    QVariantList processors = description.value(QStringLiteral("processors")).toList();
    for (QVariant &entry : processors) {
        QVariantMap processor = entry.toMap();
        if (processor.value(QStringLiteral("identifier")).toString() == QLatin1String("converter")) {
            processor.insert(QStringLiteral("class"), converterClass);
            entry = processor;
        }
    }
    description.insert(QStringLiteral("processors"), processors);
    return description;
}

void ConvertOperation::main()
{
    // A failure is reported by the merge, on the main thread: once.
    if (convert())
        m_success = addResultToLibrary();
}

bool ConvertOperation::convert()
{
    const QString source = m_song->URL();
    std::shared_ptr<VEKAudioFileReader> file(VEKAudioFileReader::open(source, &m_error));
    if (!file) {
        if (m_error.isNull())
            m_error = VEKError(errorDomain, 1, VEKLocalizedString("Error_audioFileOpen"), source);
        return false;
    }

    const QVariantMap preferred =
        UserDefaults::standard().dictionaryForKey(QStringLiteral("preferredFormat"));
    const QString format =
        writerFormatForIndex(preferred.value(QStringLiteral("format")).toULongLong());
    if (format.isEmpty()) {
        m_error = VEKError(errorDomain, 2, VEKLocalizedString("Error_audioFileWriteFormat"),
                           QStringLiteral("preferredFormat: format %1")
                               .arg(preferred.value(QStringLiteral("format")).toString()));
        return false;
    }
    // Checked here, where they are used: a hand-written rate of 1 Hz would take the converter
    // far outside anything it is built for.
    const quint64 formatIndex = preferred.value(QStringLiteral("format")).toULongLong();
    double rate = double(VEKSettingRange::checkedRateOrZero(
        QStringLiteral("preferredFormat.sampleRate"), preferred.value(QStringLiteral("sampleRate")).toLongLong()));
    if (rate <= 0.0)
        rate = file->sampleRate();
    quint32 bits = quint32(VEKSettingRange::checkedFromTable(
        QStringLiteral("preferredFormat.bitRange"), preferred.value(QStringLiteral("bitRange")).toLongLong(),
        bitRangesOfFormat(formatIndex), 0));
    if (bits == 0)
        bits = 16;
    quint32 bitRate = quint32(VEKSettingRange::checkedFromTable(
        QStringLiteral("preferredFormat.bitRate"), preferred.value(QStringLiteral("bitRate")).toLongLong(),
        {0, 128000, 160000, 192000, 224000, 256000, 320000}, 0));
    if (bitRate == 0)
        bitRate = 128000;
    const QVariant qualityValue = preferred.value(QStringLiteral("quality"));
    const float quality = qualityValue.isValid() ? qualityValue.toFloat() : 1.0f;

    const QVariantMap description = streamDescription(&m_error);
    if (description.isEmpty())
        return false;
    // Built on this thread, which owns it for the run.
    VEKAudioStream stream;
    if (!stream.initWithDescription(description, &m_error))
        return false;
    auto *reader = stream.processorWithIdentifier<VEKAudioFileReaderAudioProcessor>(QStringLiteral("reader"));
    auto *converter = stream.processorWithIdentifier<VEKConverterAudioProcessor>(QStringLiteral("converter"));
    auto *dither = stream.processorWithIdentifier<VEKDitherAudioProcessor>(QStringLiteral("dither"));
    auto *writer = stream.processorWithIdentifier<VEKAudioFileWriterAudioProcessor>(QStringLiteral("writer"));
    if (!reader || !converter || !writer) {
        m_error = VEKError(errorDomain, 3, VEKLocalizedString("ConvertOperation_streamUnusable"),
                           QStringLiteral("ConvertOperationStream.plist"));
        return false;
    }

    reader->setAudioFile(file);
    converter->setInSampleRate(file->sampleRate());
    tuneConverter(converter);
    if (dither) {
        // The word length written, so that audio which fits passes untouched; a lossy coder
        // takes floats, which 24 bits cover.
        const quint32 written = VEKAudioFileWriter::bitDepthWritten(format, bits);
        QVariantMap properties = dither->ditherProperties();
        properties.insert(QStringLiteral("depth"), written ? written : 24u);
        dither->setDitherProperties(properties);
    }

    writer->setOperation(this);
    const QFileInfo info(source);
    writer->setBaseDirectory(info.absolutePath());
    writer->setBaseFilename(info.completeBaseName());
    writer->setExistsAction(QStringLiteral("rename"));
    writer->setRange(0.0, file->length());
    writer->setFormat(format);
    writer->setSampleRate(rate);
    writer->setNumberOfChannels(file->numberOfChannels());
    writer->setBitDepth(bits);
    writer->setBitrate(bitRate);
    writer->setQuality(quality);
    const QVariantMap tags = file->metadata();
    for (auto it = tags.cbegin(); it != tags.cend(); ++it)
        writer->metadata().insert(it.key(), it.value());

    {
        QMutexLocker lock(&m_writerLock);
        m_writer = writer;
    }
    bool ok = stream.initialize(&m_error) && stream.start(&m_error);
    const QStringList results = writer->resultURLs();
    {
        QMutexLocker lock(&m_writerLock);
        setProgress(writer->progress());
        m_writer = nullptr;
    }
    stream.uninitialize();
    if (!ok)
        return false;
    if (results.isEmpty()) {
        // Cancelled while writing: the writer left nothing behind, and there is nothing to add.
        m_error = VEKError();
        return false;
    }
    m_resultURL = results.first();
    return true;
}

bool ConvertOperation::addResultToLibrary()
{
    SongPtr result = Song::initWithURL(m_resultURL, &m_error);
    if (!result)
        return false;

    VEKDatabase db;
    if (!db.initWithURL(m_libraryFile, &m_error))
        return false;
    // IDs that other runs wrote since the snapshot was taken count as taken too; the write lock
    // is held from this look to the insert, so no other process can take the ID in between.
    VEKDatabaseTransaction transaction(&db, &m_error);
    if (!transaction.isActive())
        return false;
    if (auto rows = db.queryWithStatement(QStringLiteral("SELECT songID FROM t_song")))
        while (rows->evaluateNextRow())
            m_knownIDs.insert(rows->intValueAtColumn(0));
    const qint64 id = m_ids([this](qint64 candidate) { return m_knownIDs.contains(candidate); });
    result->setSongID(id);
    result->setDateAdded(nowToTheSecond());

    auto insert = db.queryWithStatement(Database::insertSongStatement, &m_error);
    if (!insert || !Database::bindSongForInsert(*insert, *result, &m_error)
        || !insert->execute(&m_error) || !transaction.commit(&m_error))
        return false;
    m_result = result;
    return true;
}
