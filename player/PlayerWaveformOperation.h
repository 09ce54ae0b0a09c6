#pragma once

#include "ops/Operation.h"
#include "rt/VEKWaveformBuffer.h"

#include <functional>
#include <memory>

// Reads a song's file once, start to end, with a reader of its own, and keeps for each of
// `width` columns the largest and smallest sample of its stretch, over all channels: every
// sample is read, so a column holds the true extreme. The columns are mono.
//
// Runs on the position bar's own queue. The bar reads waveform() on the main thread while the
// columns arrive. A cancel takes effect after the column being read, so the operation always
// finishes at least one. When the file's length is not a multiple of the width the tail makes
// a shorter column past the width, which the buffer drops.
class PlayerWaveformOperation : public Operation {
    Q_OBJECT
public:
    PlayerWaveformOperation(const QString &path, quint64 width);

    const QString &path() const { return m_path; }
    quint64 width() const { return m_width; }
    // Made with the operation, so readers never meet an absent buffer.
    const std::shared_ptr<VEKWaveformBuffer> &waveform() const { return m_waveform; }

    // Called on the worker after each column, with the column's index (for tests).
    void setColumnObserver(std::function<void(quint64)> observer) { m_observer = std::move(observer); }

signals:
    // On the worker thread, as the reading begins.
    void started();

protected:
    void main() override;

private:
    const QString m_path;
    const quint64 m_width;
    const std::shared_ptr<VEKWaveformBuffer> m_waveform;
    std::function<void(quint64)> m_observer;
};
