#include "traffic.h"

#include "failure.h"
#include "text.h"

#include "wire.h"

#include <algorithm>
#include <utility>

namespace Shipwright {

using namespace Qt::StringLiterals;

namespace {

bool isNumber(const QString &text, quint32 most)
{
    bool ok = false;
    return text.toUInt(&ok) <= most && ok;
}

bool fits(const QString &key, const QString &value, const QCanBusFrame &frame,
          const Decoded &decoded)
{
    if (key == u"message")
        return decoded.message.contains(value, Qt::CaseInsensitive);
    if (key == u"node") {
        const quint32 node = value.toUInt();
        return !decoded.from.isEmpty()
            && (Wire::sourceNode.of(frame.frameId()) == node
                || Wire::destinationNode.of(frame.frameId()) == node);
    }
    const QJsonValue code = decoded.field(u"code"_s);
    if (code.isUndefined())
        return false;
    return value == u"failure" ? code.toInt() != 0 : code.toInt() == value.toInt();
}

} // namespace

void FrameFilter::add(const QString &text)
{
    const QString key = text.section(u'=', 0, 0);
    QString value = text.section(u'=', 1);
    const bool isRight = (key == u"message" && !value.isEmpty())
        || (key == u"node" && isNumber(value, Wire::sourceNode.max()))
        || (key == u"result"
            && (value == u"success" || value == u"failure"
                || isNumber(value, Wire::responseNumber.max())));
    if (!isRight) {
        throw Failure(Exit::Usage, u"--only cannot choose \"%1\"."_s.arg(text),
                      u"Write message=TEXT, node=NUMBER, result=success, result=failure or "
                      "result=CODE."_s);
    }
    // As frames are written for --fault; "success" is the code 0.
    if (key == u"message")
        value.replace(u'-', u' ');
    m_wanted[key] += value;
}

bool FrameFilter::passes(const QCanBusFrame &frame, const Decoded &decoded) const
{
    return std::all_of(m_wanted.keyBegin(), m_wanted.keyEnd(), [&](const QString &key) {
        const QStringList values = m_wanted.value(key);
        return std::any_of(values.begin(), values.end(),
                           [&](const QString &value) { return fits(key, value, frame, decoded); });
    });
}

void TrafficSummary::add(const QCanBusFrame &frame, const Decoded &decoded)
{
    const qint64 time = microSeconds(frame.timeStamp());
    m_firstTime = m_frames == 0 ? time : qMin(m_firstTime, time);
    m_lastTime = m_frames == 0 ? time : qMax(m_lastTime, time);
    ++m_frames;

    const bool isRefusal = decoded.field(u"code"_s).toInt() != 0;
    if (isRefusal)
        ++m_refusals;
    if (decoded.message == u"P3 response") {
        if (decoded.field(u"handshake"_s).toBool() && !isRefusal)
            ++m_sessions;
    } else if (decoded.message == u"P6 Transfer Info") {
        if (const QJsonValue size = decoded.field(u"fileSize"_s); !size.isUndefined())
            m_announced = Transfer{time, size.toInteger()};
    } else if (decoded.message == u"P6 Transfer Info answer") {
        if (const auto announced = std::exchange(m_announced, {}); announced && !isRefusal)
            m_transfer = announced;
    } else if (decoded.message == u"P6 Initiate Transfer") {
        m_nextRecord = 0;
    } else if (decoded.message == u"P6 Record Start") {
        const qint64 record = decoded.field(u"record"_s).toInteger(m_nextRecord);
        if (record < m_nextRecord)
            ++m_repeated;
        else
            m_nextRecord = record + 1;
    } else if (decoded.message == u"P6 Transfer Complete answer" && !isRefusal && m_transfer) {
        ++m_files;
        m_bytes += m_transfer->size;
        m_transferTime += time - m_transfer->start;
        m_transfer.reset();
    }
}

double TrafficSummary::bytesPerSecond() const
{
    return m_transferTime > 0 ? double(m_bytes) * 1e6 / double(m_transferTime) : 0;
}

QString TrafficSummary::text() const
{
    return u"%1 in %2 s: %3, %4 of %5 at %6/s, %7 sent again, %8."_s.arg(
        countText(m_frames, u"frame"_s), QString::number(seconds(), 'f', 1),
        countText(m_sessions, u"session"_s), countText(m_files, u"file"_s),
        countText(m_bytes, u"byte"_s), sizeText(bytesPerSecond()),
        countText(m_repeated, u"record"_s), countText(m_refusals, u"refusal"_s));
}

QJsonObject TrafficSummary::object() const
{
    return {{u"frames"_s, m_frames},     {u"seconds"_s, seconds()},
            {u"sessions"_s, m_sessions}, {u"files"_s, m_files},
            {u"bytes"_s, m_bytes},       {u"bytesPerSecond"_s, qRound64(bytesPerSecond())},
            {u"repeated"_s, m_repeated}, {u"refusals"_s, m_refusals}};
}

} // namespace Shipwright
