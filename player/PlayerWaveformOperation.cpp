#include "PlayerWaveformOperation.h"

#include "io/VEKAudioFileReader.h"

PlayerWaveformOperation::PlayerWaveformOperation(const QString &path, quint64 width)
    : m_path(path), m_width(width), m_waveform(std::make_shared<VEKWaveformBuffer>(1, width))
{
}

void PlayerWaveformOperation::main()
{
    emit started();
    if (m_width == 0)
        return;
    // An unreadable file leaves one empty column and a blank picture; nothing is reported.
    VEKAudioFileReader reader;
    const bool open = reader.initWithURL(m_path);
    const quint64 frames = open ? reader.frames() : 0;
    // A file shorter than the width gets a column per frame and leaves the rest empty.
    const quint64 framesPerPixel = qMax<quint64>(1, frames / m_width);
    VEKAudioBufferList list(open ? qMax(1u, reader.numberOfChannels()) : 1u, quint32(framesPerPixel));

    quint64 column = 0, position = 0;
    for (;;) {
        if (open)
            reader.getAudio(list, position);
        else
            list.setFrames(0);
        m_waveform->setPositiveValue(list.maximum(), column);
        m_waveform->setNegativeValue(list.minimum(), column);
        position += list.frames();
        if (m_observer)
            m_observer(column);
        // A reader that delivers nothing more has reached the end, whatever it announced.
        if (position >= frames || list.frames() == 0)
            break;
        ++column;
        setProgress(float(position) / float(frames));
        if (isCancelled())
            break;
    }
}
