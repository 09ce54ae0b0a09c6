#include "Dimmer.h"

#include "settings/UserDefaults.h"

namespace {
const QString DimKey = QStringLiteral("dim");
}

bool Dimmer::init(VEKError *error)
{
    if (!VEKAudioProcessor::init(error))
        return false;
    // `this` as the context: the connection dies with the processor.
    connect(&UserDefaults::standard(), &UserDefaults::valueChanged, this, [this](const QString &key) {
        if (key == DimKey)
            dimChanged();
    });
    return true;
}

bool Dimmer::initializeForRender(VEKError *)
{
    if (inputConnection() && outputConnection())
        inputConnection()->conformToConnection(*outputConnection());
    // A stream that starts comes up at the final level; a ramp under way is cut short.
    m_state.store(UserDefaults::standard().boolForKey(DimKey) ? Dimmed : Passing, std::memory_order_release);
    return true;
}

void Dimmer::dimChanged()
{
    m_state.store(UserDefaults::standard().boolForKey(DimKey) ? FirstDown : FirstUp, std::memory_order_release);
}

double Dimmer::rampStart(quint32 state)
{
    if (state < Dimmed)
        return 1.0 - double(state - 1) * Step;
    return double(state - FirstUp) * Step + DimLevel;
}

double Dimmer::rampEnd(quint32 state)
{
    if (state < Dimmed)
        return 1.0 - double(state) * Step;
    return double(state - FirstUp + 1) * Step + DimLevel;
}

void Dimmer::render(VEKAudioBufferList &list, quint32, const VEKAudioRenderInfo &info)
{
    inputBus().render(list, info);
    quint32 state = m_state.load(std::memory_order_acquire);
    if (state == Passing)
        return; // the common case: not a bit changed
    if (state == Dimmed) {
        list.scale(float(DimLevel));
        return;
    }
    list.scaleWithRamp(float(rampStart(state)), float(rampEnd(state)));
    const quint32 next = state == LastUp ? Passing : state + 1;
    // Fails only when the main thread began a new ramp meanwhile; that one then starts next buffer.
    m_state.compare_exchange_strong(state, next, std::memory_order_acq_rel);
}
