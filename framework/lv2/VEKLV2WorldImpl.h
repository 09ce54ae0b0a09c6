#pragma once

// Internal to the LV2 host: what VEKLV2World and VEKLV2Plugin share about lilv. Not a public
// header; include only from framework/lv2.

#include "lv2/VEKLV2URIDMap.h"
#include "lv2/VEKLV2World.h"

#include <lilv/lilv.h>

#include <mutex>
#include <vector>

// What the host makes of each port of a plugin. Both the descriptions and the instances work
// from this, so a plugin that is listed is one that instantiates.
enum class VEKLV2PortRole {
    AudioIn,
    AudioOut,
    ControlIn,
    ControlOut,
    AtomIn,  // gets an empty sequence each block (we have no events to send)
    AtomOut, // gets a cleared buffer of atomCapacity bytes each block
    CVOut,   // written into scratch memory nobody reads
    Unused,  // an optional port of a kind we do not feed: connected to null
};

struct VEKLV2PluginLayout {
    std::vector<VEKLV2PortRole> roles; // by port index
    std::vector<quint32> atomCapacity; // bytes, by port index (0 for other roles)
    quint32 audioInputs = 0;
    quint32 audioOutputs = 0;
    bool takesMIDI = false;
    int latencyPort = -1;
    bool hasState = false;
    // Empty when the plugin can run here; else the reason, for the user.
    QString refusal;
};

struct VEKLV2World::Impl {
    Impl();
    ~Impl();

    // Guards `world` and everything reached from it. Held by every public member and by the
    // instance code while it queries plugins, instantiates or handles state.
    std::recursive_mutex mutex;
    LilvWorld *world = nullptr;
    VEKLV2URIDMap urids;

    // Nodes used throughout, made once.
    LilvNode *audioPort, *controlPort, *cvPort, *atomPort, *eventPort, *inputPort, *outputPort;
    LilvNode *atomSupports, *midiEvent, *minimumSize;
    LilvNode *connectionOptional, *toggled, *integer, *enumeration, *logarithmic, *sampleRate;
    LilvNode *requiredOption, *stateInterface, *designation, *left, *right, *unitsUnit, *unitsSymbol;

    // Under `mutex`. Null for an unknown URI.
    const LilvPlugin *plugin(const QString &uri) const;
    // Under `mutex`.
    VEKLV2PluginLayout analyse(const LilvPlugin *plugin) const;
    QVariantMap describe(const LilvPlugin *plugin, const VEKLV2PluginLayout &layout) const;

    // The features we hand to plugins, by URI, and the options we fill in.
    static bool isSupportedFeature(const char *uri);
    static bool isSupportedOption(const char *uri);

    // Smallest atom buffer we give, whatever the plugin asks: some plugins write more than
    // they declare.
    static constexpr quint32 MinimumAtomCapacity = 32768;
};

QString VEKLV2NodeString(const LilvNode *node); // empty for null
