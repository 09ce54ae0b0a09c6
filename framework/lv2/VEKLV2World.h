#pragma once

#include "core/VEKError.h"

#include <QString>
#include <QVariantList>
#include <QVariantMap>
#include <QtGlobal>

#include <memory>

// The LV2 plugins of this machine, found through lilv: one world per process, made on first use
// and kept until the process ends. The search path is read when it is made: LV2_PATH if set,
// else lilv's default (~/.lv2, /usr/local/lib/lv2, /usr/lib/lv2). A plugin installed later is
// seen at the next start.
//
// Threads: every member may be called from any thread except the render thread; calls are
// serialised by an internal mutex (lilv itself is not thread-safe). Nothing here is needed while
// audio renders.
class VEKLV2World {
public:
    // The two kinds of effect slot content, as four-character codes.
    static constexpr quint32 EffectType = 0x61756678;      // 'aufx': audio in, audio out
    static constexpr quint32 MusicEffectType = 0x61756d66; // 'aumf': the same, and a MIDI input

    // The value of `class` in every description.
    static constexpr const char *ProcessorClass = "APLAudioUnitAudioProcessor";

    // Errors of the LV2 host carry this domain and one of these codes.
    static constexpr const char *ErrorDomain = "VEKLV2";
    enum ErrorCode {
        UnknownPlugin = 1,   // no plugin with that URI on this machine
        UnsupportedPlugin,   // found, but needs what this host does not give (reason says what)
        InstantiationFailed, // the plugin's own code refused to start
        CorruptSettings,     // a settings map that does not describe a plugin
        StateFailed,         // the plugin's stored state could not be restored
    };

    static VEKLV2World &shared();

    // One record per plugin of `type` that this host can run (a mono or stereo audio path, only
    // port kinds and required features we provide), in lilv's order (by URI). An unknown type
    // gives an empty list. Keys:
    //   class                  "APLAudioUnitAudioProcessor"
    //   uri                    the plugin URI: the identity kept in settings
    //   name, effectName       the plugin's name
    //   manufacturer           its author, else its project, else the unknown-maker text
    //   componentType          `type`
    //   componentSubType       a stable 32-bit hash of the URI (LV2 has no such codes; the URI,
    //   componentManufacturer  and the maker's name for this one, stay the real identity)
    //   channelConfigurations  [[inputs, outputs]] as the plugin declares them
    //   numberOfInputs, numberOfOutputs  audio ports, 1 or 2 each
    //   category               the plugin's class label ("Amplifier", "Reverb"...)
    // A description doubles as settings: VEKLV2Plugin::fromSettings makes the plugin from it.
    QVariantList effectDescriptions(quint32 type);

    // The description of one plugin by URI; empty with `error` filled when the URI is unknown
    // or the plugin cannot run here (and why).
    QVariantMap effectDescription(const QString &uri, VEKError *error = nullptr);

    // The host's own classes reach lilv through this; not for use outside framework/lv2.
    struct Impl;
    Impl &impl() { return *d; }

    VEKLV2World(const VEKLV2World &) = delete;
    VEKLV2World &operator=(const VEKLV2World &) = delete;

private:
    VEKLV2World();
    ~VEKLV2World();
    std::unique_ptr<Impl> d;
};
