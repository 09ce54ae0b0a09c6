#pragma once

#include "VEKAudioConnection.h"
#include "core/VEKError.h"
#include "rt/VEKAudioBufferList.h"
#include "rt/VEKAudioRenderInfo.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <atomic>
#include <functional>
#include <memory>
#include <vector>

class VEKAudioProcessor;
class VEKConductorAudioProcessor;
using VEKAudioProcessorPtr = std::shared_ptr<VEKAudioProcessor>;

// The input of a processor. Render thread only.
class VEKAudioInputBus {
public:
    explicit VEKAudioInputBus(const VEKAudioProcessor *owner) : m_owner(owner) {}

    // Fills `list` with info.frames frames from upstream and sets its frames() to that count:
    // the sum of the active connections into the owner, silence when none is active, when the
    // owner stands in no stream, or when info.plan is null. The branches behind inactive
    // connections are not pulled.
    void render(VEKAudioBufferList &list, const VEKAudioRenderInfo &info) const;

private:
    const VEKAudioProcessor *m_owner;
};

// A node of the audio graph. Subclasses override what they need of the lifecycle and render().
//
// Threads. Construction, the lifecycle, settings and every setter run on the main thread (or the
// thread that owns a private stream), unless a subclass says otherwise. render() runs on the
// render thread: it must not allocate, lock, log or wait (an offline stream may wait on the disk,
// see VEKAudioRenderInfo::offline).
//
// Lifecycle. init() once after construction; initializeForRender() when the processor is to get
// ready, with its connections already at their final format and maximumFramesToRender() set;
// uninitialize() reverses it and is harmless when not initialised. The stream pairs each call with
// setInitialized(). The engine also calls initializeForRender()/uninitialize() and
// setInitialized() on single processors of a running stream, to rearm a branch whose connection
// is inactive: that is only safe on processors the render thread is not pulling.
//
// A processor that is disabled or not marked initialised passes its input through unchanged
// (sinks and the conductor render regardless of `enabled`).
//
// Construction by class name: every class the graph may name is registered with registerClass().
// Static libraries drop objects nothing refers to, so there is no self-registration:
// registerFrameworkClasses() knows the framework's own classes, and the program registers its own.
class VEKAudioProcessor : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool enabled READ isEnabled WRITE setEnabled NOTIFY enabledChanged)
    Q_PROPERTY(QString name READ name WRITE setName NOTIFY nameChanged)

public:
    using Factory = std::function<VEKAudioProcessorPtr()>;

    explicit VEKAudioProcessor(QObject *parent = nullptr);
    ~VEKAudioProcessor() override;

    // --- Construction by class name (main thread) -------------------------------------------

    // Makes `className` constructible by name; a second registration replaces the first.
    static void registerClass(const QString &className, Factory factory);
    template <class T>
    static void registerClass(const QString &className = QString::fromLatin1(T::staticMetaObject.className()))
    {
        registerClass(className, [] { return VEKAudioProcessorPtr(std::make_shared<T>()); });
    }
    // Registers the framework's own classes. Idempotent; the stream and processorWithSettings()
    // call it, so only the program's own classes need a call of their own.
    static void registerFrameworkClasses();
    static bool isClassRegistered(const QString &className);
    static QStringList registeredClasses();

    // A new processor of `className`, after init(). Null with `error` when the class is unknown
    // or init() fails.
    static VEKAudioProcessorPtr processorWithClass(const QString &className, VEKError *error = nullptr);
    // A new processor from settings(): the key "class" names the class, the rest goes to
    // setSettings(). Null with `error` when either step fails.
    static VEKAudioProcessorPtr processorWithSettings(const QVariantMap &settings, VEKError *error = nullptr);

    // The name this processor was made by (its registered class name), else its C++ class name.
    QString className() const;

    // --- Lifecycle (main thread) ------------------------------------------------------------

    virtual bool init(VEKError *error);
    virtual bool initializeForRender(VEKError *error);
    // Clears processing state (filters, ramps, read positions), keeping parameters.
    virtual bool reset(VEKError *error);
    virtual bool uninitialize(VEKError *error);
    // Marks the state and nothing else; the render thread reads it.
    void setInitialized(bool initialized);
    bool isInitialized() const { return m_initialized.load(std::memory_order_acquire); }

    // --- Rendering (render thread) ----------------------------------------------------------

    // Fills `list` (info.frames frames, as many channels as the output connection carries) in
    // place. The base pulls its input unchanged. An override gets its input with
    // inputBus().render(list, info), or into a list of its own with a modified info, and must
    // never ask upstream for more than maximumFramesToRender() frames at once. It cannot fail.
    virtual void render(VEKAudioBufferList &list, quint32 bus, const VEKAudioRenderInfo &info);
    const VEKAudioInputBus &inputBus() const { return m_inputBus; }

    // --- Place in the graph -----------------------------------------------------------------

    // The connection at this processor's input (the first one of a mixer) and at its output;
    // null where there is none. A processor in a dock has the dock's connections.
    VEKAudioConnection *inputConnection() const;
    QList<VEKAudioConnection *> inputConnections() const;
    VEKAudioConnection *outputConnection() const { return m_output; }
    // The format this processor wants at its input to give `output` at its output. The stream
    // asks while initialising, from the output towards the sources. The base wants the same.
    virtual VEKAudioStreamFormat inputFormatForOutputFormat(const VEKAudioStreamFormat &output) const;
    // Whether several connections may end at this processor (mixers).
    virtual bool acceptsMultipleInputs() const { return false; }
    // The largest info.frames this processor will be asked for; set before initializeForRender().
    quint32 maximumFramesToRender() const { return m_maxFrames; }
    // The conductor that times this processor: the one downstream of it in its stream, or null.
    // Any thread; stable while the stream is initialised.
    VEKConductorAudioProcessor *conductor() const { return m_conductor.load(std::memory_order_acquire); }
    // True while the processor stands in a stream's graph (a dock's held processor included).
    bool isPlaced() const { return m_placed; }

    // --- Settings ---------------------------------------------------------------------------

    // Enough to make this processor again with processorWithSettings(): "class", "enabled" and,
    // when set, "name". Overrides start from the base's dictionary and add their own keys.
    virtual QVariantMap settings() const;
    // Applies what it knows of `settings`; keys it lacks keep their values. Fails when "class" is
    // given and names another class. Overrides call the base first and fail if it fails.
    virtual bool setSettings(const QVariantMap &settings, VEKError *error);

    // Any thread may read; set on the main thread. A disabled processor passes audio unchanged.
    bool isEnabled() const { return m_enabled.load(std::memory_order_relaxed); }
    void setEnabled(bool enabled);
    // Display name; the class name when none was set.
    QString name() const;
    void setName(const QString &name);

    // Sinks and the conductor keep rendering when disabled.
    virtual bool rendersWhenDisabled() const { return false; }

signals:
    void enabledChanged(bool enabled);
    void nameChanged(const QString &name);

private:
    friend class VEKAudioStream;
    friend class VEKAudioRenderPlan;
    friend class VEKAudioInputBus;

    // Called by the stream on the main thread.
    void place(int slot, std::vector<VEKAudioConnection *> inputs, VEKAudioConnection *output);
    void unplace() { m_placed = false; }
    void setMaximumFramesToRender(quint32 frames) { m_maxFrames = frames; }
    void setConductor(VEKConductorAudioProcessor *conductor) { m_conductor.store(conductor, std::memory_order_release); }

    VEKAudioInputBus m_inputBus{this};
    QString m_className;
    QString m_name;
    std::atomic<bool> m_enabled{true};
    std::atomic<bool> m_initialized{false};
    std::atomic<int> m_slot{-1};
    bool m_placed = false;
    std::vector<VEKAudioConnection *> m_inputs;
    VEKAudioConnection *m_output = nullptr;
    quint32 m_maxFrames = 4096;
    std::atomic<VEKConductorAudioProcessor *> m_conductor{nullptr};
};
