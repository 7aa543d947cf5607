#pragma once

#include "faults.h"

#include <QCanBusFrame>

#include <deque>
#include <functional>
#include <optional>

class QCanBusDevice;

namespace Shipwright {

class Clock;

enum class Direction { Sent, Received };

/// The bus as the engine uses it: frames go out in order and none is lost to a full send buffer,
/// frames come in one at a time up to a deadline. Every call may throw a Failure.
class Link
{
public:
    using Observer = std::function<void(const QCanBusFrame &, Direction)>;

    Link(QCanBusDevice &device, Clock &clock);

    /// Called for each frame that went out or came in, error frames included; its time stamp is set.
    void addObserver(Observer observer) { m_observers.push_back(std::move(observer)); }
    void setFaults(const FaultPlan &faults) { m_faults = faults; }
    /// How long a full send buffer is waited for, in milliseconds.
    void setSendTimeout(qint64 milliseconds) { m_sendTimeout = milliseconds; }

    /// \a advice is what to try when the interface cannot be opened.
    void open(const QString &advice = {});
    void close();
    /// From now on a frame of the service tool's node that did not go out here ends the session:
    /// every later call throws before it sends anything.
    void endOnForeignFrames() { m_endsOnForeignFrames = true; }

    void send(quint32 frameId, const QByteArray &payload);
    /// The next data frame with a 29-bit identifier, or nothing when \a deadline passes first.
    std::optional<QCanBusFrame> receive(qint64 deadline);
    /// Takes what has come in so far, so that a late answer is not taken for the next one.
    void discardReceived();
    void pause(qint64 milliseconds);
    /// Waits until the device has sent what it queues.
    void flush();

    /// Makes the call in progress, and every later one, throw.
    void interrupt() { m_interrupted = true; }

    Clock &clock() const { return m_clock; }
    /// What the interface reports about the bus; empty when all is well or nothing is known.
    QString busCondition() const;
    /// Whether it reports that frames reach nobody.
    bool reachesNobody() const;
    /// Forgets the bus errors reported so far.
    void forgetBusErrors();
    /// What to try when frames do not get through.
    static QString wiringAdvice();

private:
    void write(const QCanBusFrame &frame);
    [[noreturn]] void failToSend(const QString &what) const;
    void checkUsable() const;
    void checkAlone() const;
    void collectReceived();
    bool isEcho(const QCanBusFrame &frame);
    bool isForeign(const QCanBusFrame &frame) const;
    void observe(QCanBusFrame frame, Direction direction) const;

    QCanBusDevice &m_device;
    Clock &m_clock;
    std::vector<Observer> m_observers;
    FaultPlan m_faults;
    std::optional<QCanBusFrame> m_heldBack; ///< waits for the frame that a swap lets overtake it
    std::deque<QCanBusFrame> m_received;
    std::deque<QCanBusFrame> m_unechoed; ///< went out and were not echoed
    bool m_mayEcho = true; ///< false once an answer has come without an echo of its command
    std::optional<QCanBusFrame> m_foreign;
    QString m_lastErrorFrame;
    QCanBusFrame::FrameErrors m_busErrors;
    qint64 m_sendTimeout = 1000;
    bool m_interrupted = false;
    bool m_endsOnForeignFrames = false;
};

} // namespace Shipwright
