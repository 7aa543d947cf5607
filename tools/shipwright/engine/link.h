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

/// \a frame with the time of now, unless it has one.
QCanBusFrame stamped(QCanBusFrame frame);

/// The bus as the engine uses it: sends frames in order and waits while the send buffer is full,
/// receives frame by frame until a deadline. Every call may throw a Failure.
class Link
{
public:
    using Observer = std::function<void(const QCanBusFrame &, Direction)>;

    Link(QCanBusDevice &device, Clock &clock);

    /// Called for each frame sent or received, error frames included; its time stamp is set.
    void addObserver(Observer observer) { m_observers.push_back(std::move(observer)); }
    void setFaults(const FaultPlan &faults) { m_faults = faults; }
    /// How long to wait for a full send buffer, in milliseconds.
    void setSendTimeout(qint64 milliseconds) { m_sendTimeout = milliseconds; }

    /// \a advice is for the Failure if the interface cannot be opened.
    void open(const QString &advice = {});
    void close();
    /// From now on a frame from the service tool's node that was not sent here ends the session:
    /// every later call throws before it sends anything.
    void endOnForeignFrames() { m_endsOnForeignFrames = true; }

    void send(quint32 frameId, const QByteArray &payload);
    /// The next data frame with a 29-bit identifier, or nothing when \a deadline passes first.
    std::optional<QCanBusFrame> receive(qint64 deadline);
    /// Drops the frames received so far, so that a late answer is not taken for the next one.
    void discardReceived();
    void pause(qint64 milliseconds);
    /// Waits until the device's queue is empty.
    void flush();

    /// Makes the call in progress, and every later one, throw.
    void interrupt() { m_interrupted = true; }

    Clock &clock() const { return m_clock; }
    /// What the interface reports about the bus; empty if that is nothing or no problem.
    QString busCondition() const;
    /// Whether the interface reports that frames reach no node.
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
    void observe(const QCanBusFrame &frame, Direction direction) const;

    QCanBusDevice &m_device;
    Clock &m_clock;
    std::vector<Observer> m_observers;
    FaultPlan m_faults;
    std::optional<QCanBusFrame> m_heldBack; ///< by a swap, until the next frame is sent
    std::deque<QCanBusFrame> m_received;
    std::deque<QCanBusFrame> m_unechoed; ///< sent, and not echoed yet
    qint64 m_lastEvents = -1;            ///< when events were handled before a frame
    bool m_mayEcho = true; ///< false once an answer has come without an echo of its command
    std::optional<QCanBusFrame> m_foreign;
    QString m_lastErrorFrame;
    QCanBusFrame::FrameErrors m_busErrors;
    qint64 m_sendTimeout = 1000;
    bool m_interrupted = false;
    bool m_endsOnForeignFrames = false;
};

} // namespace Shipwright
