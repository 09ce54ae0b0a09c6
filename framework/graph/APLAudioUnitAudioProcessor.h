#pragma once

#include "VEKAudioProcessor.h"
#include "lv2/VEKLV2Plugin.h"

#include <memory>

// One LV2 effect as a processor: what an effect slot's dock holds. Made from the plugin's URI
// (setPluginURI) or from settings; the stream's rate and buffer size are only known when it is
// initialised, so initializeForRender() makes the plugin again for them, keeping every value and
// the plugin's state, and activates it.
//
// The effect works on two channels (a mono plugin runs once per channel); audio of another width
// passes through unchanged.
//
// Threads: main thread, except render(). setValue() on plugin() may come from any thread.
// reset() restarts the plugin: call it while the stream is stopped, as for VEKLV2Plugin::reset().
//
// Settings: the plugin's own (VEKLV2Plugin::settings(): "uri", "name", "controls", "state") and
// the base's ("class", "enabled", and "name", which is the plugin's name unless set otherwise).
// processorWithSettings(settings()) gives the same effect with the same values.
class APLAudioUnitAudioProcessor : public VEKAudioProcessor {
    Q_OBJECT
public:
    using VEKAudioProcessor::VEKAudioProcessor;
    ~APLAudioUnitAudioProcessor() override;

    // Instantiates the plugin with this URI, its controls at their defaults. False with `error`
    // (VEKLV2World's domain) for an unknown URI or a plugin that cannot run here; the plugin
    // held so far then stays.
    bool setPluginURI(const QString &uri, VEKError *error = nullptr);
    // The plugin, for its control ports and values; null before a URI or settings were given.
    // Replaced by initializeForRender(): do not keep the pointer across it.
    VEKLV2Plugin *plugin() const { return m_plugin.get(); }

    // Makes the plugin again at the output connection's rate and maximumFramesToRender() (when
    // either differs) and activates it. False with `error` when there is no plugin or it fails.
    bool initializeForRender(VEKError *error) override;
    bool reset(VEKError *error) override;
    bool uninitialize(VEKError *error) override;
    void render(VEKAudioBufferList &list, quint32 bus, const VEKAudioRenderInfo &info) override;

    QVariantMap settings() const override;
    // A map with "uri" makes the plugin from it (values, state); without, only the base's keys
    // apply. Fails with the plugin's error for a map it cannot use. With "uri", only for a
    // processor the render thread is not pulling (the plugin is replaced).
    bool setSettings(const QVariantMap &settings, VEKError *error) override;

private:
    // Before the stream tells us its format, the plugin runs at this rate and block size.
    static constexpr double DefaultRate = 44100.0;
    static constexpr quint32 DefaultFrames = 4096;

    std::unique_ptr<VEKLV2Plugin> m_plugin;
};
