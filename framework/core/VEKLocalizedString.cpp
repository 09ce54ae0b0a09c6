#include "VEKLocalizedString.h"

#include <QFile>
#include <QHash>
#include <QJsonDocument>
#include <QJsonObject>

namespace {
const QHash<QString, QString> &table()
{
    static const QHash<QString, QString> texts = [] {
        QHash<QString, QString> t;
        QFile file(QStringLiteral(":/Localizable.json"));
        if (file.open(QIODevice::ReadOnly)) {
            const QJsonObject obj = QJsonDocument::fromJson(file.readAll()).object();
            for (auto it = obj.begin(); it != obj.end(); ++it)
                t.insert(it.key(), it.value().toString());
        }
        return t;
    }();
    return texts;
}
}

QString VEKLocalizedString(const QString &key)
{
    const auto &t = table();
    const auto it = t.constFind(key);
    return it == t.cend() ? key : it.value();
}

QString VEKLocalizedString(const char *key) { return VEKLocalizedString(QString::fromUtf8(key)); }
