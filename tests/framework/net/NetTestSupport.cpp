#include "NetTestSupport.h"

#include "net/VEKKeyedArchive.h"
#include "support/TestEnvironment.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <gtest/gtest.h>

namespace NetTestSupport {

QString pythonTool()
{
    return QStringLiteral(QUIVERA_SOURCE_DIR "/tests/framework/net/net_tool.py");
}

QVariant fromTyped(const QJsonValue &value)
{
    const QJsonArray pair = value.toArray();
    const QString tag = pair.at(0).toString();
    const QJsonValue v = pair.at(1);
    if (tag == QLatin1String("s"))
        return v.toString();
    if (tag == QLatin1String("b"))
        return v.toBool();
    if (tag == QLatin1String("r"))
        return v.toString().toDouble();
    if (tag == QLatin1String("x"))
        return QByteArray::fromHex(v.toString().toLatin1());
    if (tag == QLatin1String("i")) {
        bool ok = false;
        const qlonglong i = v.toString().toLongLong(&ok);
        if (ok)
            return i;
        return v.toString().toULongLong();
    }
    if (tag == QLatin1String("a")) {
        QVariantList list;
        for (const QJsonValue &item : v.toArray())
            list.append(fromTyped(item));
        return list;
    }
    if (tag == QLatin1String("d")) {
        QVariantMap map;
        const QJsonObject obj = v.toObject();
        for (auto it = obj.begin(); it != obj.end(); ++it)
            map.insert(it.key(), fromTyped(it.value()));
        return map;
    }
    ADD_FAILURE() << "unknown tag " << tag.toStdString();
    return {};
}

int runTool(const QStringList &args, QByteArray *output, int timeoutMs)
{
    return runServing("python3", QStringList{pythonTool()} + args, output, timeoutMs);
}

void expectOursReadsBack(const QVariant &value, const QByteArray &bytes)
{
    VEKError error;
    const QVariant back = VEKKeyedArchive::unarchive(bytes, &error);
    ASSERT_TRUE(back.isValid()) << error.text().toStdString();
    expectSame(value, back);
}

void expectPythonReadsBack(const QVariant &value, const QByteArray &bytes)
{
    const QString path = TestEnvironment::makeTempDir("archive") + "/message.archive";
    ASSERT_TRUE(TestEnvironment::writeFile(path, bytes));
    QByteArray out;
    ASSERT_EQ(runTool({"decode", path}, &out), 0) << out.left(2000).constData();
    const QJsonDocument doc = QJsonDocument::fromJson(out);
    ASSERT_FALSE(doc.isNull()) << out.left(2000).constData();
    expectSame(value, fromTyped(doc.array()));
}

} // namespace NetTestSupport
