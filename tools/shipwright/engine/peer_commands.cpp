#include "peer.h"

#include "clock.h"
#include "failure.h"
#include "link.h"
#include "text.h"

#include <QCanBusFrame>

namespace Shipwright {

using namespace Qt::StringLiterals;

namespace {

/// For answers whose limit the receiver has not sent yet.
constexpr qint64 defaultTimeout = 1000;

} // namespace

Peer::Peer(Link &link, const PeerSettings &settings)
    : m_link(link),
      m_settings(settings)
{
}

qint64 Peer::limit(quint32 receiverLimit) const
{
    if (m_settings.timeout)
        return *m_settings.timeout;
    return receiverLimit > 0 ? receiverLimit : defaultTimeout;
}

Peer::Answer Peer::exchange(quint32 frameId, const QByteArray &payload, const Expectation &expected)
{
    m_link.discardReceived();
    m_link.send(frameId, payload);
    if (!expected.unanswered.isEmpty())
        m_state = expected.unanswered;
    // A whole record may still be queued: the time limit starts when it is sent.
    m_link.flush();
    const qint64 deadline = m_link.clock().now() + expected.timeout;
    QStringList others;
    qsizetype otherCount = 0;
    while (const auto frame = m_link.receive(deadline)) {
        if ((frame->frameId() & expected.idMask) == expected.id) {
            m_link.forgetBusErrors();
            return {Wire::responseNumber.of(frame->frameId()), frame->payload()};
        }
        if (++otherCount <= 3)
            others += frameText(*frame);
    }
    QString came = u"received nothing"_s;
    if (otherCount > 0) {
        came = u"received instead: %1"_s.arg(others.join(u", "_s));
        if (otherCount > others.size())
            came += u" and %1 more"_s.arg(otherCount - others.size());
    }
    const QString condition = m_link.busCondition();
    if (!condition.isEmpty())
        came += u"; "_s + condition;
    const QString message = u"No answer to %1: sent %2, waited %3 ms for identifier %4, %5."_s
                                .arg(expected.what, frameText(frameId, payload))
                                .arg(expected.timeout)
                                .arg(hexDigits(expected.id).toUpper(), came);
    if (m_link.reachesNobody())
        throw Failure(Exit::SendBlocked, message, Link::wiringAdvice());
    QString advice = u"Check that the receiver runs, that it is on this bus at the same bit rate, "
                     "and --destination"_s;
    advice += condition.isEmpty()
        ? u"; a busy receiver may need a longer --timeout."_s
        : u"; the bus has errors: check the wiring and the termination."_s;
    throw Failure(Exit::NoAnswer, message, advice);
}

Peer::Answer Peer::command(quint32 operation, const QByteArray &payload, const QString &what,
                           const QString &unanswered)
{
    const quint32 id = Wire::P3::commandId(Wire::nodeShipwright, m_settings.destination,
                                           m_settings.slot, Wire::P3::interfaceShipwright,
                                           operation);
    const quint32 answerId = Wire::P3::responseId(Wire::nodeDockhand, Wire::nodeShipwright,
                                                  m_settings.slot, 0);
    return exchange(id, payload,
                    {~Wire::responseNumber.mask(), answerId, what, limit(0), unanswered});
}

void Peer::expectSuccess(const Answer &answer, const QString &what, const QString &reason) const
{
    if (answer.code == Wire::resultSuccess)
        return;
    throw Failure(Exit::Refused,
                  u"The receiver refused %1 with code %2."_s.arg(what).arg(answer.code), reason);
}

void Peer::startConfiguration()
{
    const QString what = u"start of configuration"_s;
    const Answer answer = command(Wire::StartConfiguration::operation,
                                  QByteArray::fromHex(Wire::StartConfiguration::request), what);
    expectSuccess(answer, what,
                  u"The receiver does not know the handshake A5 5A: is it a Dockhand?"_s);
    if (answer.payload != QByteArray::fromHex(Wire::StartConfiguration::response)) {
        throw Failure(Exit::BadAnswer,
                      u"The answer to %1 carries %2 where 5AA5 was expected."_s.arg(
                          what, QString::fromLatin1(answer.payload.toHex()).toUpper()));
    }
    m_configuring = true;
}

void Peer::endConfiguration()
{
    const QString what = u"end of configuration"_s;
    expectSuccess(command(Wire::EndConfiguration::operation, {}, what), what, {});
    m_configuring = false;
}

void Peer::checkDateTime(const QDateTime &dateTime)
{
    const QDateTime utc = dateTime.toUTC();
    const int year = utc.date().year() - Wire::SetDateTime::epoch;
    if (!utc.isValid() || year < 0 || year > 255) {
        throw Failure(Exit::Usage,
                      u"The date %1 cannot be sent: the protocol has the years 2000 to 2255."_s.arg(
                          utc.toString(Qt::ISODate)));
    }
}

void Peer::setDateTime(const QDateTime &dateTime)
{
    checkDateTime(dateTime);
    const QString what = u"set date and time"_s;
    const QDateTime utc = dateTime.toUTC();
    const QDate date = utc.date();
    const QTime time = utc.time();
    QByteArray payload(Wire::SetDateTime::size, '\0');
    payload[Wire::SetDateTime::year] = char(date.year() - Wire::SetDateTime::epoch);
    payload[Wire::SetDateTime::month] = char(date.month());
    payload[Wire::SetDateTime::day] = char(date.day());
    payload[Wire::SetDateTime::hour] = char(time.hour());
    payload[Wire::SetDateTime::minute] = char(time.minute());
    payload[Wire::SetDateTime::second] = char(time.second());

    const Answer answer = command(
        Wire::SetDateTime::operation, payload, what,
        u"It is not known whether the receiver set its clock; set it again."_s);
    m_state.clear();
    expectSuccess(answer, what,
                  u"The receiver does not take %1 for a date."_s.arg(utc.toString(Qt::ISODate)));
    if (answer.payload != payload) {
        throw Failure(Exit::BadAnswer,
                      u"The answer to %1 carries %2, not the %3 that was sent."_s.arg(
                          what, QString::fromLatin1(answer.payload.toHex()),
                          QString::fromLatin1(payload.toHex())));
    }
}

void Peer::checkSerialNumber(const QString &serialNumber)
{
    constexpr qsizetype firstPart = Wire::SetSerial::textMax;
    constexpr qsizetype longest = firstPart + Wire::DataFrame::size;
    const QByteArray text = serialNumber.toUtf8();
    const auto refuse = [&serialNumber](const QString &reason) {
        throw Failure(Exit::Usage,
                      u"The serial number \"%1\" cannot be sent: %2."_s.arg(serialNumber, reason));
    };
    if (text.isEmpty())
        refuse(u"it is empty"_s);
    if (text.size() > longest)
        refuse(u"it has %1 bytes in UTF-8, the maximum is %2"_s.arg(text.size()).arg(longest));
    for (const QChar c : serialNumber) {
        if (c.category() == QChar::Other_Control)
            refuse(u"it contains a control character"_s);
    }
    // The receiver decodes each frame by itself, so no character may be in both.
    if (text.size() > firstPart && (uchar(text.at(firstPart)) & 0xC0) == 0x80) {
        refuse(
            u"a character has bytes in both frames (the first carries %1 bytes), and the receiver "
            "decodes each frame by itself"_s.arg(firstPart));
    }
}

void Peer::setSerialNumber(const QString &serialNumber)
{
    constexpr qsizetype firstPart = Wire::SetSerial::textMax;
    checkSerialNumber(serialNumber);
    const QByteArray text = serialNumber.toUtf8();

    QString what = u"set serial number"_s;
    const QString unknown =
        u"It is not known whether the receiver stored the serial number; set it again."_s;
    const QString half = u"The receiver has the first %1 bytes of the serial number and has stored "
                         "nothing yet; set the whole number again."_s.arg(firstPart);
    const bool isLong = text.size() > firstPart;
    Answer answer = command(Wire::SetSerial::operation, char(text.size()) + text.left(firstPart),
                            what, isLong ? half : unknown);
    if (isLong && answer.code == Wire::resultSuccess) {
        what = u"set serial number, second frame"_s;
        answer = command(Wire::SetSerialExt::operation, text.mid(firstPart), what, unknown);
    }
    m_state.clear();
    expectSuccess(
        answer, what,
        u"The receiver could not store the number: look for \"File write failed\" in its log and "
        "check /media/service/korvane."_s);
}

QString Peer::receiverState() const
{
    if (!m_state.isEmpty())
        return m_state;
    if (m_configuring)
        return u"The receiver shows an open configuration session; \"shipwright end\" ends it."_s;
    return {};
}

} // namespace Shipwright
