#pragma once

#include "VEKAudioStream.h"

// Fills a stream from its description (see VEKAudioStream.h) and checks the graph's shape. On
// failure the stream is left partly filled; the stream clears it.
class VEKAudioStreamBuilder {
public:
    explicit VEKAudioStreamBuilder(VEKAudioStream &stream);
    bool build(const QVariantMap &description, VEKError *error);

private:
    bool readFormat(const QVariantMap &description, VEKError *error);
    bool readChains(const QVariantMap &description, VEKError *error);
    bool readConnections(const QVariantMap &description, VEKError *error);
    bool validate(VEKError *error);
    // The new node's slot, or -1 with `error`.
    int addProcessor(const QVariantMap &entry, const QString &where, VEKError *error);
    // An identifier's slot or a new inline node's; -1 with `error`.
    int resolve(const QVariant &item, const QString &where, VEKError *error);
    bool connect(int from, int to, const QString &identifier, bool active, quint32 channels, const QString &where,
                 VEKError *error);
    static bool fail(VEKError *error, qint64 code, const char *key, const QString &arg, const QString &reason);
    static bool malformed(VEKError *error, const QString &reason);

    VEKAudioStream &m_stream;
};
