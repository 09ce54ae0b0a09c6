#include "CliCommand.h"

#include "outputs/VEKAudioDevice.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

int run(CliSession &session, const QStringList &argv, const CliCommand &command)
{
    const CliArguments args(argv, {}, {QStringLiteral("json")});
    if (const int rc = cliCheckArguments(session, args, command); rc >= 0)
        return rc;
    if (!args.positional().isEmpty()) {
        session.fail(QStringLiteral("devices takes no arguments besides its options"));
        return 2;
    }
    // Devices need no library: no launch, so this works even when the library can't be opened.
    VEKError error;
    const QList<VEKAudioDevicePtr> devices = VEKAudioDevice::outputDevices(&error);
    if (!error.isNull())
        session.err() << "quivera-cli: warning: " << error.text() << Qt::endl;
    const QString defaultUID = VEKAudioDevice::defaultOutputDevice()->UID();

    QJsonArray array;
    for (const VEKAudioDevicePtr &device : devices) {
        const bool valid = device->isValid();
        const QList<double> rates = valid ? device->availableSampleRates() : QList<double>();
        const QString uid = device->UID();
        if (args.has(QStringLiteral("json"))) {
            QJsonArray jsonRates;
            for (const double rate : rates)
                jsonRates.append(rate);
            array.append(QJsonObject{{QStringLiteral("UID"), uid},
                                     {QStringLiteral("title"), device->title()},
                                     {QStringLiteral("sampleRates"), jsonRates},
                                     {QStringLiteral("exclusive"), device->supportsExclusive()},
                                     {QStringLiteral("valid"), valid},
                                     {QStringLiteral("default"), uid == defaultUID}});
            continue;
        }
        QStringList rateTexts;
        for (const double rate : rates)
            rateTexts << QString::number(rate, 'f', 0);
        session.out() << (uid == defaultUID ? "* " : "  ") << uid << " — " << device->title() << '\n';
        if (!valid) {
            session.out() << "      not available\n";
            continue;
        }
        session.out() << "      " << (rateTexts.isEmpty() ? QStringLiteral("no rates") : rateTexts.join(u' ') + QStringLiteral(" Hz"));
        if (device->supportsExclusive())
            session.out() << "; exclusive use possible";
        session.out() << '\n';
    }
    if (args.has(QStringLiteral("json")))
        session.out() << QString::fromUtf8(QJsonDocument(array).toJson(QJsonDocument::Indented));
    session.out().flush();
    return 0;
}

} // namespace

CliCommand devicesCommand()
{
    CliCommand c;
    c.name = QStringLiteral("devices");
    c.summary = QStringLiteral("list the output devices");
    c.help = QStringLiteral(
        "quivera-cli devices [--json]\n\n"
        "Lists the output devices: ALSA's playback devices, then \"null\" (plays nothing, keeps\n"
        "time). The default device is marked with '*'. Each shows the sample rates it takes\n"
        "without resampling and whether it can be used exclusively (direct hardware access).\n"
        "A device's UID is what the outputDevice setting stores.\n\n"
        "  --json   an array of objects with UID, title, sampleRates, exclusive, valid, default");
    c.run = [c](CliSession &s, const QStringList &a) { return run(s, a, c); };
    return c;
}
