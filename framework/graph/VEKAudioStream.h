#pragma once

#include "VEKAudioConnection.h"
#include "VEKAudioProcessor.h"
#include "rt/VEKRenderSnapshot.h"

#include <QHash>
#include <QObject>
#include <QString>
#include <QTimer>
#include <QVariantMap>

#include <atomic>
#include <memory>
#include <vector>

class VEKAudioDock;
class VEKAudioRenderPlan;
class VEKAudioSinkProcessor;
class VEKConductorAudioProcessor;

// An audio graph built from a description, pulled by its sink, timed by its conductor.
//
// The description is a dictionary, usually read from a property list:
//
//   format       dictionary, optional: "sampleRate" (number) and "numberOfChannels" (integer)
//                asked of the sink. The hardware sink runs at its device's rate instead.
//   processors   array of dictionaries, one per node:
//                  identifier  string, optional, unique: how processorWithIdentifier() finds it
//                  class       string: a registered processor class ("VEKAudioDock" for a dock)
//                  settings    dictionary, optional: given to setSettings() after init()
//   chains       array of arrays, optional. Each inner array lists nodes from source to sink and
//                joins each to the next with an active, unnamed connection. An item is an
//                identifier, or a dictionary like a "processors" entry for a node that needs no
//                identifier of its own.
//   connections  array of dictionaries, optional, for connections that need more:
//                  from, to          identifiers of the two ends
//                  identifier        string, optional: how connectionWithIdentifier() finds it
//                  active            boolean, default true
//                  numberOfChannels  integer, optional: fixes this connection's width
//
// Rules: one sink (a VEKAudioSinkProcessor) ends the graph; a node's output feeds one connection
// at most; only mixers take several inputs; no cycles. A conductor times the generators upstream
// of it. Breaking a rule, naming an unknown class or identifier, or a wrong type fails the build
// with an error that names the culprit.
//
// The format of every connection follows from the sink's, from the sink towards the sources,
// each processor saying what it needs at its input (inputFormatForOutputFormat).
//
// Threads: everything here on the owning thread (the main thread, or an operation's thread for a
// private offline stream), except renderCycle(), which the sink calls on the render thread.
// The render thread renders from a baked plan that a change of structure replaces with one atomic
// exchange; retired plans are freed on the owning thread once the render thread has left them.
class VEKAudioStream : public QObject {
    Q_OBJECT
public:
    explicit VEKAudioStream(QObject *parent = nullptr);
    ~VEKAudioStream() override;

    // Builds every node and connection the description names. False with `error` (and nothing
    // built) when the description is unusable. Once per stream; subclasses call the base first.
    virtual bool initWithDescription(const QVariantMap &description, VEKError *error = nullptr);
    // The same from a property-list file.
    bool initWithDescriptionFile(const QString &path, VEKError *error = nullptr);

    // The processor or dock with that identifier; null for one the description lacks.
    VEKAudioProcessor *processorWithIdentifier(const QString &identifier) const;
    template <class T>
    T *processorWithIdentifier(const QString &identifier) const
    {
        return qobject_cast<T *>(processorWithIdentifier(identifier));
    }
    VEKAudioConnection *connectionWithIdentifier(const QString &identifier) const;
    QStringList identifiers() const;
    // The first conductor of the description, and the sink; null before a build.
    VEKConductorAudioProcessor *conductor() const { return m_conductor; }
    VEKAudioSinkProcessor *sink() const { return m_sink; }

    // Opens the sink (which fixes the format), sets every connection's format, and initialises
    // every processor for render. A change of device, converter or effect class needs
    // uninitialize() first. False with `error` when the sink or a processor fails; then nothing
    // stays initialised.
    virtual bool initialize(VEKError *error = nullptr);
    // The reverse; stops first. Harmless when not initialised.
    virtual bool uninitialize(VEKError *error = nullptr);
    // Starts pulling. A hardware stream returns at once and runs until stop(); an offline stream
    // returns when its sink is finished, with its result.
    virtual bool start(VEKError *error = nullptr);
    // Stops pulling; harmless when stopped. For an offline stream, any thread may call it.
    virtual bool stop(VEKError *error = nullptr);
    bool isRunning() const { return m_running.load(); }
    bool isInitialized() const { return m_initialized; }

    // The format at the sink and the largest buffer, while initialised.
    VEKAudioStreamFormat format() const { return m_format; }
    quint32 framesPerBuffer() const { return m_maxFrames; }

    // If the output device's rate was changed under the running stream, reopens the output at the
    // new rate and rebuilds the formats (stop, uninitialize, initialize, start); the conductor
    // keeps its place in seconds. A hardware stream does it by itself when the device monitor
    // announces a new rate.
    bool followDeviceRate(VEKError *error = nullptr);

    // Render thread, by the sink only: renders one buffer of list.frames() frames (at most
    // framesPerBuffer()) into `list`.
    void renderCycle(VEKAudioBufferList &list, quint64 sampleTime, bool offline);

private:
    struct Position {
        QString identifier;
        VEKAudioProcessorPtr processor;
        VEKAudioDock *dock = nullptr;
        std::vector<int> inputs; // connection indexes
        int output = -1;         // connection index
    };
    friend class VEKAudioStreamBuilder;

    VEKAudioProcessor *processorAt(int slot) const;
    std::vector<VEKAudioConnection *> inputsOf(int slot) const;
    VEKAudioConnection *outputOf(int slot) const;
    VEKConductorAudioProcessor *conductorDownstreamOf(int slot) const;
    void placeAll();
    void propagateFormats();
    void propagateFrom(int slot, const VEKAudioStreamFormat &output, int depth);
    // `fadingSlot`, when given, is a dock whose processor just changed from `fadingOut`: a
    // crossfading dock fades that out in the new plan.
    std::unique_ptr<VEKAudioRenderPlan> bakePlan(int fadingSlot = -1, VEKAudioProcessorPtr fadingOut = nullptr) const;
    void publishPlan(std::unique_ptr<VEKAudioRenderPlan> plan);
    void collectPlans();
    void dockChanged(int slot, VEKAudioProcessorPtr processor, VEKAudioProcessorPtr previous);
    void uninitializeProcessors();

    std::vector<Position> m_positions;
    std::vector<std::unique_ptr<VEKAudioConnection>> m_connections;
    QHash<QString, int> m_slots;
    QHash<QString, VEKAudioConnection *> m_namedConnections;
    int m_sinkSlot = -1;
    VEKAudioSinkProcessor *m_sink = nullptr;
    VEKConductorAudioProcessor *m_conductor = nullptr;
    bool m_built = false;

    VEKAudioStreamFormat m_requestedFormat;
    VEKAudioStreamFormat m_format;
    quint32 m_maxFrames = 0;
    bool m_initialized = false;
    std::atomic<bool> m_running{false};
    VEKRenderSnapshot<VEKAudioRenderPlan> m_plan;
    QTimer m_collectTimer;
};
