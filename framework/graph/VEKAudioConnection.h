#pragma once

#include <QString>
#include <QtGlobal>

#include <atomic>

// The format of the audio on one connection: the graph always carries 32-bit float,
// non-interleaved, so a rate and a width say it all.
struct VEKAudioStreamFormat {
    double sampleRate = 44100.0;
    quint32 numberOfChannels = 2;
    bool operator==(const VEKAudioStreamFormat &) const = default;
};

// An edge of the graph: the output of one processor feeding the input of another. Made by the
// stream from its description and owned by it; processors only borrow connections.
//
// `active` may be read and written from any thread, also from a landmark's action on the render
// thread while the stream renders. An inactive connection contributes silence and the branch
// behind it is not pulled at all, so whatever that branch prepared stays as it was.
// The format is set on the main thread while the stream is initialised (or by a processor's
// initializeForRender on a branch being rearmed) and read anywhere.
class VEKAudioConnection {
public:
    VEKAudioConnection(QString identifier, int sourceSlot, int destinationSlot);
    VEKAudioConnection(const VEKAudioConnection &) = delete;
    VEKAudioConnection &operator=(const VEKAudioConnection &) = delete;

    // The description's identifier; empty for connections it did not name.
    const QString &identifier() const { return m_identifier; }

    bool isActive() const { return m_active.load(std::memory_order_acquire); }
    void setActive(bool active) { m_active.store(active, std::memory_order_release); }

    quint32 numberOfChannels() const { return m_channels.load(std::memory_order_relaxed); }
    double sampleRate() const { return m_rate.load(std::memory_order_relaxed); }
    void setNumberOfChannels(quint32 channels) { m_channels.store(channels, std::memory_order_relaxed); }
    void setSampleRate(double rate) { m_rate.store(rate, std::memory_order_relaxed); }
    VEKAudioStreamFormat format() const { return {sampleRate(), numberOfChannels()}; }
    void setFormat(const VEKAudioStreamFormat &format);
    // Takes on the format of `other`, so that a processor's input and output agree.
    void conformToConnection(const VEKAudioConnection &other) { setFormat(other.format()); }

    // A width the description fixed for this connection (0 when it left it to the graph).
    quint32 fixedNumberOfChannels() const { return m_fixedChannels; }
    void setFixedNumberOfChannels(quint32 channels) { m_fixedChannels = channels; }

    // Positions of the two ends in the stream.
    int sourceSlot() const { return m_source; }
    int destinationSlot() const { return m_destination; }

private:
    QString m_identifier;
    int m_source;
    int m_destination;
    quint32 m_fixedChannels = 0;
    std::atomic<bool> m_active{true};
    std::atomic<quint32> m_channels{2};
    std::atomic<double> m_rate{44100.0};
};
