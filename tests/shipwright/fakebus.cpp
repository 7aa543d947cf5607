#include "fakebus.h"

void FakeClock::wait(qint64 milliseconds)
{
    const qint64 end = m_now + qMax<qint64>(0, milliseconds);
    if (m_events.isEmpty() || m_events.firstKey() > end) {
        m_now = end;
        return;
    }
    m_now = qMax(m_now, m_events.firstKey());
    const auto action = m_events.first();
    m_events.erase(m_events.cbegin());
    action();
}

void FakeClock::at(qint64 time, const std::function<void()> &action)
{
    // QMultiMap puts the newest of equal keys first; the order of arrival must not change.
    const auto place = std::as_const(m_events).upperBound(time);
    m_events.insert(place, time, action);
}

FakeBus::FakeBus(FakeClock &clock)
    : m_clock(clock)
{
}

bool FakeBus::open()
{
    if (opening == Opening::Refused)
        setError(QStringLiteral("No such device"), ConnectionError);
    if (opening == Opening::Done)
        setState(ConnectedState);
    return opening == Opening::Done || opening == Opening::NeverDone;
}

void FakeBus::goAway()
{
    setError(QStringLiteral("Network is down"), ConnectionError);
    setState(UnconnectedState);
}

bool FakeBus::writeFrame(const QCanBusFrame &frame)
{
    ++writeAttempts;
    if (state() != ConnectedState)
        return false;
    if (refusedWrites > 0) {
        --refusedWrites;
        setError(QStringLiteral("No buffer space available"), WriteError);
        return false;
    }
    if (queueInterval > 0) {
        if (!hasOutgoingFrames())
            m_clock.at(m_clock.now() + queueInterval, [this] { transmitQueued(); });
        enqueueOutgoingFrame(frame);
        return true;
    }
    transmit(frame);
    return true;
}

void FakeBus::transmitQueued()
{
    transmit(dequeueOutgoingFrame());
    if (hasOutgoingFrames())
        m_clock.at(m_clock.now() + queueInterval, [this] { transmitQueued(); });
}

void FakeBus::transmit(const QCanBusFrame &frame)
{
    sent += text(frame);
    QCanBusFrame arrived = frame;
    arrived.setTimeStamp(QCanBusFrame::TimeStamp::fromMicroSeconds(m_clock.now() * 1000));
    QList<QCanBusFrame> answers = receiver.receive(arrived);
    if (tamper)
        answers = tamper(frame, answers);
    for (QCanBusFrame answer : std::as_const(answers)) {
        const qint64 delay = answer.timeStamp().microSeconds() / 1000;
        answer.setTimeStamp({});
        m_clock.at(m_clock.now() + answerDelay + delay, [this, answer] { deliver(answer); });
    }
    if (onWritten)
        onWritten(frame);
}

QString FakeBus::interpretErrorFrame(const QCanBusFrame &errorFrame)
{
    return errorFrame.error() & QCanBusFrame::MissingAcknowledgmentError
        ? QStringLiteral("Received no ACK on transmission")
        : QStringLiteral("Unknown");
}

QString text(const QCanBusFrame &frame)
{
    return QString::number(frame.frameId(), 16).toUpper().rightJustified(8, u'0') + u'#'
        + QString::fromLatin1(frame.payload().toHex()).toUpper();
}

QCanBusFrame frame(quint32 id, const char *hexPayload)
{
    return QCanBusFrame(id, QByteArray::fromHex(hexPayload));
}
