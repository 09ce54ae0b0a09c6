#pragma once

#include "VEKFrameReader.h"

#include <QHostAddress>
#include <QObject>
#include <QTimer>
#include <QVariant>

#include <atomic>

class QTcpSocket;

// One message connection over TCP. Each message is a dictionary, carried as a keyed archive
// (VEKKeyedArchive) in a frame of its own: a 4-byte big-endian length, then the archive.
// One send() at one end gives one received() at the other, with an equal dictionary.
//
// The pipe lives on the thread that makes it (the main thread, in the program): the socket is
// read and written there, from its event loop, and every signal is emitted there. Only send()
// may be called from other threads.
//
// Nothing from the network is trusted. A frame announcing more than maxMessageSize bytes, a
// frame that is not a keyed archive, or an archive whose root is not a dictionary emits
// protocolError() with the reason and then closed(): the connection is dropped at once, and the
// bytes of an over-long frame are never allocated.
//
// Nor can one peer hold the pipe's thread or its memory: the first message must arrive within
// stallTimeout of connecting and every frame within stallTimeout of its first byte (an idle or
// trickling peer is dropped); the next request is read only once the replies to the last have
// gone to the system, so a peer that sends and never reads costs one reply, not all of them;
// replies that wait make progress within stallTimeout, and never add up to more than
// maxPendingBytes. Each of these drops the connection as a protocol error.
class VEKNetworkPipe : public QObject {
    Q_OBJECT
public:
    static constexpr qint64 maxMessageSize = VEKFrameReader::maxFrameSize;
    static constexpr int stallTimeoutMs = 15000;
    static constexpr qint64 maxPendingBytes = 64 * 1024 * 1024;

    // Takes over `socket` (connected, or still connecting: what is sent meanwhile waits), which
    // must belong to the current thread.
    explicit VEKNetworkPipe(QTcpSocket *socket, QObject *parent = nullptr);
    // Drops the connection without emitting anything.
    ~VEKNetworkPipe() override;

    // Archives `message` (a QVariantMap or QVariantHash) on the calling thread and queues its
    // frame for the pipe's thread. Safe from any thread, as long as the pipe outlives the call;
    // frames sent from one thread leave in the order of the calls. False, with nothing sent,
    // when the message is no dictionary or cannot be archived, its archive is larger than
    // maxMessageSize, or the pipe is closed.
    bool send(const QVariant &message);

    // Pipe's thread. Stops receiving and ends the connection once the frames already sent
    // have left. Emits nothing: closed() is for endings the owner did not ask for.
    void close();

    // Any thread. False once the connection has ended or close() was called.
    bool isOpen() const { return m_open.load(std::memory_order_acquire); }

    // Pipe's thread. The client's address, for the log.
    QHostAddress peerAddress() const;

    // Pipe's thread. A shorter stall limit, for tests.
    void setStallTimeout(int ms);
    // Pipe's thread. Messages from the peer above this size (at most maxMessageSize) break the
    // connection like over-long frames.
    void setMaxIncomingMessageSize(qint64 bytes) { m_reader.setLimit(quint32(std::clamp<qint64>(bytes, 0, maxMessageSize))); }

signals:
    // A whole message: always a QVariantMap.
    void received(const QVariant &message);
    // The peer broke the protocol; closed() follows.
    void protocolError(const QString &reason);
    // The connection ended without close(): the peer went, the network failed, or the peer
    // broke the protocol. Emitted once. Delete the pipe with deleteLater() from a slot.
    void closed();

private:
    void readFrames();
    // Pipe's thread: the frame of one archive.
    void writeFrame(const QByteArray &archive);
    void breakConnection(const QString &reason);
    void connectionEnded();
    void wrote();

    QTcpSocket *m_socket;
    VEKFrameReader m_reader;
    QTimer m_inputDeadline;  // the first message, then each frame once begun
    QTimer m_outputDeadline; // replies waiting for the peer to read
    bool m_hadMessage = false;
    std::atomic<qint64> m_queued{0}; // bytes of frames sent from other threads, not yet written
    QString m_peer; // kept for the log: the socket forgets it when the connection ends
    std::atomic<bool> m_open{true};
};
