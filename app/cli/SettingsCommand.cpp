#include "CliCommand.h"

#include "settings/UserDefaults.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

namespace {

// JSON has one kind of number; a whole number becomes an integer setting, as the program's own
// integer settings are.
QVariant fromJson(const QJsonValue &v)
{
    switch (v.type()) {
    case QJsonValue::Bool: return v.toBool();
    case QJsonValue::Double: {
        const double d = v.toDouble();
        if (d == double(qint64(d)) && std::abs(d) < 9.0e15)
            return qint64(d);
        return d;
    }
    case QJsonValue::String: return v.toString();
    case QJsonValue::Array: {
        QVariantList list;
        for (const QJsonValue &item : v.toArray())
            list.append(fromJson(item));
        return list;
    }
    case QJsonValue::Object: {
        QVariantMap map;
        const QJsonObject o = v.toObject();
        for (auto it = o.begin(); it != o.end(); ++it)
            map.insert(it.key(), fromJson(it.value()));
        return map;
    }
    default: return {};
    }
}

QJsonValue toJson(const QVariant &v)
{
    switch (v.typeId()) {
    case QMetaType::QVariantMap: {
        QJsonObject o;
        const QVariantMap map = v.toMap();
        for (auto it = map.begin(); it != map.end(); ++it)
            o.insert(it.key(), toJson(it.value()));
        return o;
    }
    case QMetaType::QVariantList: {
        QJsonArray a;
        for (const QVariant &item : v.toList())
            a.append(toJson(item));
        return a;
    }
    case QMetaType::QByteArray: return QString::fromLatin1(v.toByteArray().toBase64());
    case QMetaType::QDateTime: return v.toDateTime().toUTC().toString(Qt::ISODate);
    default: return QJsonValue::fromVariant(v);
    }
}

} // namespace

CliCommand settingsCommand()
{
    CliCommand c;
    c.name = QStringLiteral("settings");
    c.summary = QStringLiteral("read or write a setting");
    c.help = QStringLiteral(
        "quivera-cli settings get KEY\n"
        "quivera-cli settings set KEY VALUE\n\n"
        "VALUE is JSON: 1, 0.5, true, \"text\", [1, 2], {\"format\": 6, \"sampleRate\": 96000}.\n"
        "Whole numbers are stored as integers. 'get' prints the value in force as JSON,\n"
        "the registered default when none is stored, and null for an unknown key.");
    c.run = [c](CliSession &session, const QStringList &argv) {
        const CliArguments args(argv, {}, {});
        if (const int rc = cliCheckArguments(session, args, c); rc >= 0)
            return rc;
        const QStringList pos = args.positional();
        const bool get = pos.value(0) == QLatin1String("get") && pos.size() == 2;
        const bool set = pos.value(0) == QLatin1String("set") && pos.size() == 3;
        if (!get && !set) {
            session.fail(QStringLiteral("settings takes 'get KEY' or 'set KEY VALUE'"));
            return 2;
        }
        QVariant value;
        if (set) {
            // Wrapped in an array, since a bare number or string is no JSON document of its own.
            QJsonParseError parseError;
            const QJsonDocument doc = QJsonDocument::fromJson(
                QStringLiteral("[%1]").arg(pos.at(2)).toUtf8(), &parseError);
            if (parseError.error != QJsonParseError::NoError || doc.array().size() != 1) {
                session.fail(QStringLiteral("VALUE must be JSON (quote text: '\"%1\"')").arg(pos.at(2)));
                return 2;
            }
            value = fromJson(doc.array().first());
        }
        session.loadSettings();
        UserDefaults &defaults = UserDefaults::standard();
        if (set) {
            defaults.setValue(pos.at(1), value);
            VEKError error;
            if (!defaults.synchronize(&error)) {
                session.fail(error.text() + QStringLiteral("; the settings file was left as it was"));
                return 1;
            }
            return 0;
        }
        const QJsonValue json = toJson(defaults.value(pos.at(1)));
        const QJsonDocument doc(QJsonArray{json});
        QString text = QString::fromUtf8(doc.toJson(QJsonDocument::Compact));
        session.out() << text.mid(1, text.size() - 2) << Qt::endl; // strip the wrapping array
        return 0;
    };
    return c;
}
