#pragma once

#include "receivermodel.h"

#include "clock.h"

#include <QCanBusDevice>
#include <QMap>

#include <functional>

/// Time that passes only while it is waited for.
class FakeClock final : public Shipwright::Clock
{
public:
    qint64 now() const override { return m_now; }
    void wait(qint64 milliseconds) override;

    /// Calls \a action once at \a time; a wait that reaches it ends there.
    void at(qint64 time, const std::function<void()> &action);

private:
    qint64 m_now = 0;
    QMultiMap<qint64, std::function<void()>> m_events;
};

/// A CAN interface with a receiver behind it, in this process.
class FakeBus final : public QCanBusDevice
{
public:
    /// Called with a sent frame and the receiver's answers to it; returns the answers to deliver.
    using Tamper = std::function<QList<QCanBusFrame>(const QCanBusFrame &, QList<QCanBusFrame>)>;

    enum class Opening { Done, Refused, RefusedSilently, NeverDone };

    explicit FakeBus(FakeClock &clock);

    ReceiverModel receiver;
    Tamper tamper;
    qint64 answerDelay = 1;   ///< milliseconds between a frame and its answers
    int refusedWrites = 0;    ///< how many calls of writeFrame fail, as with a full buffer
    qint64 queueInterval = 0; ///< milliseconds that a frame stays in the queue; 0: no queue
    Opening opening = Opening::Done;
    std::function<void(const QCanBusFrame &)> onWritten;

    /// The frames sent, as 0F1A02C0#A55A.
    QStringList sent;
    int writeAttempts = 0;

    void deliver(const QCanBusFrame &frame) { enqueueReceivedFrames({frame}); }
    void goAway();

    bool writeFrame(const QCanBusFrame &frame) override;
    QString interpretErrorFrame(const QCanBusFrame &) override;
    bool hasBusStatus() const override { return true; }
    CanBusStatus busStatus() override { return status; }

    CanBusStatus status = CanBusStatus::Good;

protected:
    bool open() override;
    void close() override { setState(UnconnectedState); }

private:
    void transmit(const QCanBusFrame &frame);
    void transmitQueued();

    FakeClock &m_clock;
};

QString text(const QCanBusFrame &frame);
QCanBusFrame frame(quint32 id, const char *hexPayload);
