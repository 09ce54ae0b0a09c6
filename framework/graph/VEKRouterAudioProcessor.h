#pragma once

#include "VEKAudioProcessor.h"

#include <array>
#include <atomic>

// Which input channels feed which output channel. Each tie is one bit in an atomic mask per
// output, so the main thread can change ties while the render thread reads them (a change of
// several ties is not seen as one step, which is why the engine changes ties on a branch it does
// not hear).
class VEKAudioRoutingMatrix {
public:
    static constexpr quint32 maxChannels = 64;

    // Removes every tie.
    void clearTies();
    // Input channel `input` feeds output channel `output`; an input may feed several outputs and
    // an output may take several inputs, which are summed. Channels past maxChannels are ignored.
    void tie(quint32 input, quint32 output);
    void tieInputChannel(quint32 input, quint32 output) { tie(input, output); }
    bool isTied(quint32 input, quint32 output) const;
    // Bit i set: input i feeds `output`.
    quint64 inputsOfOutput(quint32 output) const;

private:
    std::array<std::atomic<quint64>, maxChannels> m_outputs{};
};

// Turns a file's channels into the stream's: the output width is that of the output connection
// (2 in the player), the input width is set here. Unless told otherwise it ties input i to
// output i.
//
// Settings: "numberOfInputChannels" (integer), "ties" (array of [input, output] pairs).
class VEKRouterAudioProcessor : public VEKAudioProcessor {
    Q_OBJECT
public:
    explicit VEKRouterAudioProcessor(QObject *parent = nullptr);

    // Main thread; 1 to 64, else false with `error`. Takes effect at the next
    // initializeForRender(), which also sets the width of the input connection.
    bool setNumberOfInputChannels(quint32 channels, VEKError *error = nullptr);
    quint32 numberOfInputChannels() const { return m_inputChannels; }

    VEKAudioRoutingMatrix &router() { return m_matrix; }
    const VEKAudioRoutingMatrix &router() const { return m_matrix; }

    VEKAudioStreamFormat inputFormatForOutputFormat(const VEKAudioStreamFormat &output) const override;
    bool initializeForRender(VEKError *error) override;
    bool uninitialize(VEKError *error) override;
    void render(VEKAudioBufferList &list, quint32 bus, const VEKAudioRenderInfo &info) override;

    QVariantMap settings() const override;
    bool setSettings(const QVariantMap &settings, VEKError *error) override;

private:
    VEKAudioRoutingMatrix m_matrix;
    quint32 m_inputChannels = 2;
    VEKAudioBufferList m_input;
};
