#include "VEKCaptureDevice.h"

#include "VEKCaptureOutput.h"
#include "core/VEKLocalizedString.h"

#include <QFileInfo>

VEKCaptureDevice::Options VEKCaptureDevice::parse(const QString &uid)
{
    Options o;
    if (!uid.startsWith(QLatin1String(prefix)))
        return o;
    const QString rest = uid.mid(qsizetype(qstrlen(prefix)));
    const qsizetype q = rest.indexOf(u'?');
    o.path = q < 0 ? rest : rest.left(q);
    if (o.path.isEmpty())
        return o;
    if (q >= 0) {
        for (const QString &item : rest.mid(q + 1).split(u'&', Qt::SkipEmptyParts)) {
            if (item == QLatin1String("fast")) {
                o.fast = true;
            } else if (item == QLatin1String("float")) {
                o.isFloat = true;
            } else if (item.startsWith(QLatin1String("bits="))) {
                o.bits = item.mid(5).toUInt();
                if (o.bits != 16 && o.bits != 24 && o.bits != 32)
                    return o;
            } else {
                return o;
            }
        }
    }
    if (o.isFloat && o.bits != 0 && o.bits != 32)
        return o;
    o.ok = true;
    return o;
}

VEKCaptureDevice::VEKCaptureDevice(const QString &uid) : VEKClockedDevice(uid), m_options(parse(uid)) {}

bool VEKCaptureDevice::isValid() const
{
    if (!m_options.ok)
        return false;
    const QFileInfo file(m_options.path);
    return file.isAbsolute() && QFileInfo(file.path()).isDir();
}

QString VEKCaptureDevice::title(VEKError *) const
{
    return VEKLocalizedString("AudioDevice_captureTitle").arg(QFileInfo(m_options.path).fileName());
}

std::unique_ptr<VEKAudioOutput> VEKCaptureDevice::createOutput()
{
    VEKCaptureOutput::Settings s;
    s.path = m_options.path;
    s.paced = !m_options.fast;
    s.bits = m_options.isFloat ? 32 : m_options.bits;
    s.isFloat = m_options.isFloat;
    s.valid = isValid();
    return std::make_unique<VEKCaptureOutput>(s, sampleRate());
}
