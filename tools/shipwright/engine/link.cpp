#include "link.h"

#include "clock.h"
#include "failure.h"
#include "text.h"

#include "wire.h"

#include <QCanBusDevice>

#include <chrono>
#include <utility>

namespace Shipwright {

using namespace Qt::StringLiterals;

namespace {

/// About the time that eight frames take at 1 Mbit/s.
constexpr qint64 sendBufferPoll = 1;
constexpr qint64 openTimeout = 5000;

QCanBusFrame corrupted(const QCanBusFrame &frame)
{
    QByteArray payload = frame.payload();
    if (!payload.isEmpty())
        payload[0] = char(payload.at(0) ^ 0x01);
    return QCanBusFrame(frame.frameId(), payload);
}

} // namespace

QCanBusFrame stamped(QCanBusFrame frame)
{
    const QCanBusFrame::TimeStamp stamp = frame.timeStamp();
    if (stamp.seconds() == 0 && stamp.microSeconds() == 0) {
        using namespace std::chrono;
        const auto now = duration_cast<microseconds>(system_clock::now().time_since_epoch());
        frame.setTimeStamp(QCanBusFrame::TimeStamp::fromMicroSeconds(now.count()));
    }
    return frame;
}

Link::Link(QCanBusDevice &device, Clock &clock)
    : m_device(device),
      m_clock(clock)
{
}

void Link::open(const QString &advice)
{
    const qint64 deadline = m_clock.now() + openTimeout;
    const bool connecting = !m_interrupted && m_device.connectDevice();
    while (connecting && !m_interrupted && m_device.state() == QCanBusDevice::ConnectingState
           && m_clock.now() < deadline)
        m_clock.wait(deadline - m_clock.now());
    if (m_interrupted)
        throw Failure(Exit::Interrupted, u"Interrupted."_s);
    if (m_device.state() == QCanBusDevice::ConnectedState)
        return;
    QString reason = m_device.errorString();
    if (m_device.state() == QCanBusDevice::ConnectingState)
        reason = u"no connection within %1 ms"_s.arg(openTimeout);
    else if (reason.isEmpty())
        reason = u"the driver gives no reason"_s;
    throw Failure(Exit::Interface, u"The CAN interface cannot be opened: %1."_s.arg(reason),
                  advice);
}

void Link::close()
{
    m_device.disconnectDevice();
}

void Link::checkUsable() const
{
    if (m_interrupted)
        throw Failure(Exit::Interrupted, u"Interrupted."_s);
    if (m_device.state() != QCanBusDevice::ConnectedState) {
        // Closing a device can leave errors that do not give the cause.
        const QCanBusDevice::CanBusError error = m_device.error();
        const bool tellsCause = error == QCanBusDevice::ConnectionError
            || error == QCanBusDevice::ReadError || error == QCanBusDevice::WriteError;
        throw Failure(Exit::Interface,
                      u"The CAN interface went away%1."_s.arg(
                          tellsCause ? u": "_s + m_device.errorString() : QString()),
                      u"Check that the adapter is plugged in and that the interface is up, "
                      "then start the session again."_s);
    }
}

void Link::checkAlone() const
{
    if (!m_foreign)
        return;
    throw Failure(
        Exit::ForeignTool,
        u"Another service tool uses this bus: node %1 sent %2, which this tool did not send. "
        "The session ended there."_s.arg(Wire::nodeShipwright)
            .arg(frameText(*m_foreign)),
        u"Stop the other tool, then start this session again."_s);
}

void Link::send(quint32 frameId, const QByteArray &payload)
{
    const QCanBusFrame frame(frameId, payload);
    // A frame that was held back goes out after this one, whatever happens to this one.
    std::optional<QCanBusFrame> overtaken = std::exchange(m_heldBack, std::nullopt);

    const std::optional<Fault> fault = m_faults.next(frame);
    if (!fault) {
        write(frame);
    } else {
        switch (fault->action) {
        case Fault::Action::Drop:
            break;
        case Fault::Action::Repeat:
            write(frame);
            write(frame);
            break;
        case Fault::Action::Swap:
            m_heldBack = frame;
            break;
        case Fault::Action::Corrupt:
            write(corrupted(frame));
            break;
        case Fault::Action::Truncate:
            write(QCanBusFrame(frameId, payload.chopped(payload.isEmpty() ? 0 : 1)));
            break;
        case Fault::Action::Delay:
            pause(fault->delay);
            write(frame);
            break;
        case Fault::Action::Abandon:
            flush();
            throw Failure(Exit::Abandoned,
                          u"Abandoned before sending %1, as --fault says."_s.arg(frameText(frame)));
        case Fault::Action::Kill:
            flush();
            close();
            break;
        }
    }
    if (overtaken)
        write(*overtaken);
}

void Link::write(const QCanBusFrame &frame)
{
    // Qt's socketcan plugin has no queue: it refuses a frame while the interface's queue is full.
    const qint64 start = m_clock.now();
    // Handling events costs several times as much as a frame; a millisecond later is soon enough.
    if (std::exchange(m_lastEvents, start) != start)
        m_clock.wait(0);
    collectReceived();
    checkAlone();
    checkUsable();
    while (!m_device.writeFrame(frame)) {
        const qint64 waited = m_clock.now() - start;
        checkUsable();
        if (waited >= m_sendTimeout) {
            failToSend(u"%1 could not be sent for %2 ms: %3"_s.arg(
                frameText(frame), QString::number(waited), m_device.errorString()));
        }
        m_clock.wait(sendBufferPoll);
    }
    if (m_endsOnForeignFrames && m_mayEcho)
        m_unechoed.push_back(frame);
    observe(stamped(frame), Direction::Sent);
}

void Link::flush()
{
    // Plugins other than socketcan queue frames and send them from the event loop.
    qint64 lastSent = m_clock.now();
    for (qint64 queued = m_device.framesToWrite(); queued > 0;) {
        checkUsable();
        if (m_clock.now() - lastSent >= m_sendTimeout) {
            failToSend(u"Frames (%1) stayed in the send buffer for %2 ms"_s.arg(queued).arg(
                m_clock.now() - lastSent));
        }
        m_clock.wait(sendBufferPoll);
        if (m_device.framesToWrite() < queued)
            lastSent = m_clock.now();
        queued = m_device.framesToWrite();
    }
}

void Link::failToSend(const QString &what) const
{
    const QString condition = busCondition();
    throw Failure(Exit::SendBlocked,
                  what + (condition.isEmpty() ? QString() : u"; "_s + condition) + u'.',
                  wiringAdvice());
}

QString Link::wiringAdvice()
{
    return u"No node acknowledges the frames, or the interface is down: check the receiver's "
           "power, the wiring, the termination, and that both sides use the same bit rate."_s;
}

void Link::collectReceived()
{
    // A disconnected device keeps the frames that it has received.
    while (m_device.state() == QCanBusDevice::ConnectedState && m_device.framesAvailable() > 0) {
        const QCanBusFrame frame = stamped(m_device.readFrame());
        if (isEcho(frame))
            continue;
        if (frame.frameType() == QCanBusFrame::ErrorFrame) {
            m_lastErrorFrame = m_device.interpretErrorFrame(frame).simplified();
            m_busErrors |= frame.error();
        }
        observe(frame, Direction::Received);
        if (frame.frameType() != QCanBusFrame::DataFrame || !frame.hasExtendedFrameFormat())
            continue;
        if (!m_foreign && isForeign(frame))
            m_foreign = frame;
        m_received.push_back(frame);
    }
}

bool Link::isEcho(const QCanBusFrame &frame)
{
    if (frame.hasLocalEcho())
        return true;
    // Not every adapter marks its echoes. But the echo of a command comes before its answer.
    const bool isAnswer = Wire::sourceNode.of(frame.frameId()) == Wire::nodeDockhand
        && Wire::destinationNode.of(frame.frameId()) == Wire::nodeShipwright;
    if (isAnswer && !m_unechoed.empty()) {
        m_mayEcho = false;
        m_unechoed.clear();
    }
    if (m_unechoed.empty() || frame.frameId() != m_unechoed.front().frameId()
        || frame.payload() != m_unechoed.front().payload())
        return false;
    m_unechoed.pop_front();
    return true;
}

bool Link::isForeign(const QCanBusFrame &frame) const
{
    return m_endsOnForeignFrames && Wire::sourceNode.of(frame.frameId()) == Wire::nodeShipwright;
}

std::optional<QCanBusFrame> Link::receive(qint64 deadline)
{
    for (;;) {
        collectReceived();
        if (!m_received.empty()) {
            // Frames before the foreign one still belong to this session.
            if (isForeign(m_received.front()))
                checkAlone();
            const QCanBusFrame frame = m_received.front();
            m_received.pop_front();
            return frame;
        }
        checkUsable();
        const qint64 left = deadline - m_clock.now();
        if (left <= 0)
            return std::nullopt;
        m_clock.wait(left);
    }
}

void Link::discardReceived()
{
    m_clock.wait(0);
    collectReceived();
    checkAlone();
    m_received.clear();
}

void Link::pause(qint64 milliseconds)
{
    const qint64 end = m_clock.now() + milliseconds;
    for (qint64 left = milliseconds; left > 0; left = end - m_clock.now()) {
        checkUsable();
        m_clock.wait(left);
    }
}

QString Link::busCondition() const
{
    QStringList parts;
    if (m_device.hasBusStatus()) {
        switch (m_device.busStatus()) {
        case QCanBusDevice::CanBusStatus::Warning:
            parts += u"the controller counts many errors (error warning)"_s;
            break;
        case QCanBusDevice::CanBusStatus::Error:
            parts += u"the controller is error passive"_s;
            break;
        case QCanBusDevice::CanBusStatus::BusOff:
            parts += u"the controller is off the bus (bus-off)"_s;
            break;
        case QCanBusDevice::CanBusStatus::Unknown:
        case QCanBusDevice::CanBusStatus::Good:
            break;
        }
    }
    if (!m_lastErrorFrame.isEmpty())
        parts += u"last bus error: "_s + m_lastErrorFrame;
    return parts.join(u", "_s);
}

bool Link::reachesNobody() const
{
    const bool isOff = m_device.hasBusStatus()
        && m_device.busStatus() == QCanBusDevice::CanBusStatus::BusOff;
    return isOff
        || (m_busErrors
            & (QCanBusFrame::MissingAcknowledgmentError | QCanBusFrame::BusOffError
               | QCanBusFrame::TransmissionTimeoutError));
}

void Link::forgetBusErrors()
{
    m_lastErrorFrame.clear();
    m_busErrors = {};
}

void Link::observe(const QCanBusFrame &frame, Direction direction) const
{
    for (const Observer &observer : m_observers)
        observer(frame, direction);
}

} // namespace Shipwright
