#include "Muter.h"

#include "settings/UserDefaults.h"

namespace {
const QString MuteKey = QStringLiteral("mute");
}

bool Muter::init(VEKError *error)
{
    if (!VEKAudioProcessor::init(error))
        return false;
    // `this` as the context: the connection dies with the processor.
    connect(&UserDefaults::standard(), &UserDefaults::valueChanged, this, [this](const QString &key) {
        if (key == MuteKey)
            muteChanged();
    });
    return true;
}

bool Muter::initializeForRender(VEKError *)
{
    if (inputConnection() && outputConnection())
        inputConnection()->conformToConnection(*outputConnection());
    // A stream that starts comes up at the final level; a fade under way is cut short.
    m_state.store(UserDefaults::standard().boolForKey(MuteKey) ? Silent : Passing, std::memory_order_release);
    return true;
}

void Muter::muteChanged()
{
    m_state.store(UserDefaults::standard().boolForKey(MuteKey) ? GoingSilent : ComingBack,
                  std::memory_order_release);
}

void Muter::render(VEKAudioBufferList &list, quint32, const VEKAudioRenderInfo &info)
{
    inputBus().render(list, info);
    quint32 state = m_state.load(std::memory_order_acquire);
    quint32 next = state;
    switch (state) {
    case GoingSilent:
        list.fadeOut();
        next = Silent;
        break;
    case Silent:
        list.clear();
        return;
    case ComingBack:
        list.fadeIn();
        next = Passing;
        break;
    default:
        return;
    }
    // Fails only when the main thread began a new ramp meanwhile; that one then starts next buffer.
    m_state.compare_exchange_strong(state, next, std::memory_order_acq_rel);
}
