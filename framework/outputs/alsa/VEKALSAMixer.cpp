#include "VEKALSAMixer.h"

#include "VEKALSA.h"

#include <alsa/asoundlib.h>

#include <cerrno>
#include <functional>

namespace {

// Opens the simple mixer of `ctl`, calls `visit` for each element with a playback switch until
// it returns false, and closes it again. Returns the ALSA status of opening.
int eachSwitch(const QString &ctl, const std::function<bool(snd_mixer_elem_t *)> &visit)
{
    VEKALSA::silenceErrors();
    snd_mixer_t *mixer = nullptr;
    int err = snd_mixer_open(&mixer, 0);
    if (err < 0)
        return err;
    const QByteArray name = ctl.toUtf8();
    if ((err = snd_mixer_attach(mixer, name.constData())) < 0
        || (err = snd_mixer_selem_register(mixer, nullptr, nullptr)) < 0
        || (err = snd_mixer_load(mixer)) < 0) {
        snd_mixer_close(mixer);
        return err;
    }
    for (snd_mixer_elem_t *e = snd_mixer_first_elem(mixer); e; e = snd_mixer_elem_next(e)) {
        if (!snd_mixer_selem_is_active(e) || !snd_mixer_selem_has_playback_switch(e))
            continue;
        if (!visit(e))
            break;
    }
    snd_mixer_close(mixer);
    return 0;
}

QString elementName(snd_mixer_elem_t *e) { return QString::fromUtf8(snd_mixer_selem_get_name(e)); }

}

quint32 VEKALSAMixer::sourceID(const QString &name, unsigned index)
{
    quint32 h = 2166136261u;
    for (const char c : (name + u',' + QString::number(index)).toUtf8()) {
        h ^= quint8(c);
        h *= 16777619u;
    }
    return h;
}

QList<VEKAudioDeviceSource> VEKALSAMixer::playbackSwitches(const QString &ctl, VEKError *error)
{
    QList<VEKAudioDeviceSource> sources;
    const int err = eachSwitch(ctl, [&](snd_mixer_elem_t *e) {
        const QString name = elementName(e);
        const unsigned index = snd_mixer_selem_get_index(e);
        VEKAudioDeviceSource s;
        s.sourceID = sourceID(name, index);
        s.title = index == 0 ? name : QStringLiteral("%1 %2").arg(name).arg(index + 1);
        for (int ch = 0; ch <= SND_MIXER_SCHN_LAST; ++ch) {
            const auto channel = snd_mixer_selem_channel_id_t(ch);
            int on = 0;
            if (snd_mixer_selem_has_playback_channel(e, channel)
                && snd_mixer_selem_get_playback_switch(e, channel, &on) == 0 && on) {
                s.enabled = true;
                break;
            }
        }
        sources.append(s);
        return true;
    });
    if (err < 0)
        VEKError::set(error, VEKALSA::error("Error_audioDeviceSource", err, ctl));
    return sources;
}

bool VEKALSAMixer::setPlaybackSwitch(const QString &ctl, quint32 id, bool enabled, VEKError *error)
{
    int result = -ENOENT;
    const int err = eachSwitch(ctl, [&](snd_mixer_elem_t *e) {
        if (sourceID(elementName(e), snd_mixer_selem_get_index(e)) != id)
            return true;
        result = snd_mixer_selem_set_playback_switch_all(e, enabled ? 1 : 0);
        return false;
    });
    if (err < 0)
        result = err;
    if (result < 0) {
        VEKError::set(error, VEKALSA::error("Error_audioDeviceSource", result,
                                            QStringLiteral("%1 (source %2)").arg(ctl).arg(id)));
        return false;
    }
    return true;
}
