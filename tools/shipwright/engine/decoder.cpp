#include "decoder.h"

#include "filetypes.h"
#include "text.h"

#include "wire.h"

#include <QDateTime>
#include <QtEndian>

#include <utility>

namespace Shipwright {

using namespace Qt::StringLiterals;

namespace {

constexpr std::pair<QCanBusFrame::FrameError, QLatin1StringView> busErrors[] = {
    {QCanBusFrame::TransmissionTimeoutError, QLatin1StringView("transmission time-out")},
    {QCanBusFrame::LostArbitrationError, QLatin1StringView("lost arbitration")},
    {QCanBusFrame::ControllerError, QLatin1StringView("controller problem")},
    {QCanBusFrame::ProtocolViolationError, QLatin1StringView("protocol violation")},
    {QCanBusFrame::TransceiverError, QLatin1StringView("transceiver problem")},
    {QCanBusFrame::MissingAcknowledgmentError, QLatin1StringView("no acknowledgement")},
    {QCanBusFrame::BusOffError, QLatin1StringView("bus off")},
    {QCanBusFrame::BusError, QLatin1StringView("bus error")},
    {QCanBusFrame::ControllerRestartError, QLatin1StringView("controller restarted")},
};

QString nodeName(quint32 node)
{
    switch (node) {
    case Wire::nodeShipwright:
        return u"Shipwright"_s;
    case Wire::nodeDockhand:
        return u"Dockhand"_s;
    default:
        return u"node %1"_s.arg(node);
    }
}

QString hexBytes(const QByteArray &payload)
{
    return QString::fromLatin1(payload.toHex(' ')).toUpper();
}

QString resultName(quint32 code)
{
    switch (code) {
    case Wire::resultSuccess:
        return u"success"_s;
    case Wire::TransferInfo::rejected:
        return u"Transfer Info rejected"_s;
    case Wire::InitiateTransfer::rejected:
        return u"Initiate Transfer rejected"_s;
    case Wire::resultFailure:
        return u"failure"_s;
    default:
        return u"unknown code"_s;
    }
}

/// Takes a payload apart and collects the fields.
class Reader
{
public:
    Reader(Decoded &decoded, const QByteArray &payload)
        : m_decoded(decoded),
          m_payload(payload)
    {
    }

    void add(const QString &name, const QJsonValue &value, const QString &text)
    {
        m_decoded.fields.append({name, value, text});
    }
    void addNumber(const QString &name, quint32 value, const QString &text)
    {
        add(name, qint64(value), text.arg(value));
    }
    /// \a noun is singular.
    void addCount(const QString &name, quint32 value, const QString &noun)
    {
        add(name, qint64(value), countText(value, noun));
    }
    void addCrc(const QString &text)
    {
        const auto crc = number<quint32>(0);
        add(u"crc"_s, hexDigits(crc), text.arg(hexNumber(crc)));
    }
    void addFileType()
    {
        const quint32 type = byte(Wire::TransferInfo::fileType);
        add(u"fileType"_s, qint64(type), u"file type %1 (%2)"_s.arg(type).arg(fileTypeName(type)));
    }
    void addCode(quint32 id)
    {
        const quint32 code = Wire::responseNumber.of(id);
        add(u"code"_s, qint64(code), u"code %1 (%2)"_s.arg(code).arg(resultName(code)));
    }

    quint32 byte(qsizetype offset) const { return uchar(m_payload.at(offset)); }
    template<typename Number>
    Number number(qsizetype offset) const
    {
        return qFromLittleEndian<Number>(m_payload.constData() + offset);
    }
    qsizetype size() const { return m_payload.size(); }
    const QByteArray &payload() const { return m_payload; }

    /// Whether the payload has the size that the message must have.
    bool sizeIs(qsizetype size)
    {
        if (m_payload.size() != size)
            m_decoded.fault = u"%1 bytes, %2 expected"_s.arg(m_payload.size()).arg(size);
        return m_payload.size() == size;
    }
    bool sizeIsAtLeast(qsizetype size)
    {
        if (m_payload.size() < size) {
            m_decoded.fault = u"%1 bytes, at least %2 expected"_s.arg(m_payload.size()).arg(size);
        }
        return m_payload.size() >= size;
    }
    void setFault(const QString &fault) { m_decoded.fault = fault; }

private:
    Decoded &m_decoded;
    const QByteArray &m_payload;
};

void readDateTime(Reader &reader)
{
    if (!reader.sizeIs(Wire::SetDateTime::size))
        return;
    const auto part = [&reader](qsizetype offset) { return int(reader.byte(offset)); };
    // Not a QDateTime, which cannot show a date that does not exist.
    const QString text = u"%1-%2-%3 %4:%5:%6 UTC"_s
                             .arg(part(Wire::SetDateTime::year) + Wire::SetDateTime::epoch)
                             .arg(part(Wire::SetDateTime::month), 2, 10, QLatin1Char('0'))
                             .arg(part(Wire::SetDateTime::day), 2, 10, QLatin1Char('0'))
                             .arg(part(Wire::SetDateTime::hour), 2, 10, QLatin1Char('0'))
                             .arg(part(Wire::SetDateTime::minute), 2, 10, QLatin1Char('0'))
                             .arg(part(Wire::SetDateTime::second), 2, 10, QLatin1Char('0'));
    reader.add(u"time"_s, text, text);
    const QDate date(part(Wire::SetDateTime::year) + Wire::SetDateTime::epoch,
                     part(Wire::SetDateTime::month), part(Wire::SetDateTime::day));
    if (!date.isValid())
        reader.setFault(u"no such day"_s);
}

void readSerial(Reader &reader)
{
    if (!reader.sizeIsAtLeast(Wire::SetSerial::text))
        return;
    const quint32 length = reader.byte(Wire::SetSerial::length);
    reader.addNumber(u"length"_s, length, u"%1 bytes in all"_s);
    const qsizetype here = qMin<qsizetype>(length, Wire::SetSerial::textMax);
    const QString text = QString::fromUtf8(reader.payload().mid(Wire::SetSerial::text, here));
    reader.add(u"text"_s, text, u"\"%1\""_s.arg(printable(text)));
    reader.sizeIsAtLeast(Wire::SetSerial::text + here);
}

void decodeCommand(Decoded &decoded, Reader &reader, quint32 id)
{
    reader.addNumber(u"slot"_s, Wire::P3::slot.of(id), u"slot %1"_s);
    const quint32 interfaceId = Wire::P3::interfaceNumber.of(id);
    const quint32 operation = Wire::P3::operation.of(id);
    if (interfaceId != Wire::P3::interfaceShipwright) {
        decoded.message = u"P3 command"_s;
        reader.addNumber(u"interface"_s, interfaceId, u"interface %1"_s);
        reader.addNumber(u"operation"_s, operation, u"operation %1"_s);
        return;
    }
    switch (operation) {
    case Wire::StartConfiguration::operation:
        decoded.message = u"P3 Start Configuration"_s;
        if (!reader.payload().startsWith(QByteArray::fromHex(Wire::StartConfiguration::request)))
            reader.setFault(u"no handshake A5 5A"_s);
        break;
    case Wire::SetDateTime::operation:
        decoded.message = u"P3 Set Date Time"_s;
        readDateTime(reader);
        break;
    case Wire::SetSerial::operation:
        decoded.message = u"P3 Set Serial"_s;
        readSerial(reader);
        break;
    case Wire::SetSerialExt::operation: {
        decoded.message = u"P3 Set Serial Ext"_s;
        const QString text = QString::fromUtf8(reader.payload());
        reader.add(u"text"_s, text, u"\"%1\""_s.arg(printable(text)));
        break;
    }
    case Wire::EndConfiguration::operation:
        decoded.message = u"P3 End Configuration"_s;
        break;
    default:
        decoded.message = u"P3 command"_s;
        reader.addNumber(u"operation"_s, operation, u"operation %1"_s);
        reader.setFault(u"unknown operation"_s);
    }
}

void decodeP3(Decoded &decoded, Reader &reader, quint32 id)
{
    if (Wire::P3::response.of(id) != 0) {
        decoded.message = u"P3 response"_s;
        reader.addNumber(u"slot"_s, Wire::P3::slot.of(id), u"slot %1"_s);
        reader.addCode(id);
        if (reader.payload() == QByteArray::fromHex(Wire::StartConfiguration::response))
            reader.add(u"handshake"_s, true, u"handshake 5A A5"_s);
    } else if (Wire::sourceNode.of(id) == Wire::nodeDockhand) {
        decoded.message = u"P3 event"_s;
        reader.addNumber(u"number"_s, Wire::P3::eventNumber.of(id), u"number %1"_s);
    } else {
        decodeCommand(decoded, reader, id);
    }
}

void readVersion(Reader &reader)
{
    const quint32 version = Wire::P6::versionField.of(reader.byte(Wire::TransferInfo::version));
    reader.addNumber(u"version"_s, version, u"version %1"_s);
    if (version != Wire::P6::version)
        reader.setFault(u"version %1 expected"_s.arg(Wire::P6::version));
}

void decodeTransferCommand(Decoded &decoded, Reader &reader, quint32 id)
{
    switch (Wire::P6::type.of(id)) {
    case Wire::TransferInfo::type:
        decoded.message = u"P6 Transfer Info"_s;
        if (reader.sizeIsAtLeast(Wire::TransferInfo::minSize)) {
            reader.addFileType();
            reader.addCount(u"fileSize"_s, reader.number<quint32>(Wire::TransferInfo::fileSize),
                            u"byte"_s);
            readVersion(reader);
        }
        break;
    case Wire::InitiateTransfer::type:
        decoded.message = u"P6 Initiate Transfer"_s;
        if (reader.sizeIs(Wire::InitiateTransfer::size)) {
            reader.addFileType();
            reader.addCount(u"records"_s,
                            reader.number<quint32>(Wire::InitiateTransfer::numberOfRecords),
                            u"record"_s);
            readVersion(reader);
        }
        break;
    case Wire::RecordStart::type:
        decoded.message = u"P6 Record Start"_s;
        if (reader.sizeIs(Wire::RecordStart::size)) {
            const quint32 frames = reader.byte(Wire::RecordStart::framesToFollow);
            reader.addNumber(u"record"_s, reader.number<quint32>(Wire::RecordStart::recordNumber),
                             u"record %1"_s);
            reader.addCount(u"frames"_s, frames, u"frame"_s);
            if (frames > Wire::RecordStart::maxFrames)
                reader.setFault(
                    u"at most %1 frames can be numbered"_s.arg(Wire::RecordStart::maxFrames));
        }
        break;
    case Wire::RecordEnd::type:
        decoded.message = u"P6 Record End"_s;
        if (reader.sizeIs(Wire::P6::crcSize))
            reader.addCrc(u"CRC-32 %1"_s);
        break;
    case Wire::TransferComplete::type:
        decoded.message = u"P6 Transfer Complete"_s;
        if (reader.sizeIs(Wire::P6::crcSize))
            reader.addCrc(u"CRC-32 %1"_s);
        break;
    case Wire::DataFrame::type:
        decoded.message = u"P6 Data Frame"_s;
        reader.addNumber(u"frame"_s, Wire::DataFrame::frameNumber.of(id), u"frame %1"_s);
        break;
    default:
        decoded.message = u"P6 type %1"_s.arg(Wire::P6::type.of(id));
        reader.setFault(u"unknown type"_s);
    }
}

void decodeTransferAnswer(Decoded &decoded, Reader &reader, quint32 id)
{
    switch (Wire::P6::type.of(id)) {
    case Wire::TransferInfo::type:
        decoded.message = u"P6 Transfer Info answer"_s;
        reader.addCode(id);
        if (reader.sizeIs(Wire::TransferInfoResponse::size)) {
            const quint32 flags = reader.byte(Wire::TransferInfoResponse::flags);
            reader.addNumber(u"version"_s, Wire::P6::versionField.of(flags), u"version %1"_s);
            reader.addNumber(u"flag"_s, flags >> Wire::TransferInfoResponse::flagShift & 1,
                             u"flag %1"_s);
            reader.addNumber(u"frameLimit"_s,
                             Wire::TransferInfoResponse::frameLimitHighField.of(flags) << 8
                                 | reader.byte(Wire::TransferInfoResponse::frameLimit),
                             u"frame limit %1"_s);
            reader.addNumber(u"parameter1"_s,
                             reader.number<quint16>(Wire::TransferInfoResponse::parameter1),
                             u"parameters %1"_s);
            reader.addNumber(u"parameter2"_s,
                             reader.number<quint16>(Wire::TransferInfoResponse::parameter2),
                             u"%1"_s);
            reader.addNumber(u"parameter3"_s,
                             reader.number<quint16>(Wire::TransferInfoResponse::parameter3),
                             u"%1"_s);
        }
        break;
    case Wire::InitiateTransfer::type:
        decoded.message = u"P6 Initiate Transfer answer"_s;
        reader.addCode(id);
        reader.sizeIs(Wire::InitiateTransfer::responseSize);
        break;
    case Wire::RecordEnd::type:
        decoded.message = u"P6 Record End answer"_s;
        reader.addCode(id);
        if (reader.sizeIs(Wire::RecordEnd::responseSize)) {
            const bool accepted = reader.payload().at(0) == Wire::RecordEnd::accepted;
            reader.add(u"accepted"_s, accepted,
                       accepted ? u"CRC-32 matches"_s : u"CRC-32 differs"_s);
        }
        break;
    case Wire::TransferComplete::type:
        decoded.message = u"P6 Transfer Complete answer"_s;
        reader.addCode(id);
        if (reader.sizeIs(Wire::P6::crcSize))
            reader.addCrc(u"receiver's CRC-32 %1"_s);
        break;
    default:
        decoded.message = u"P6 type %1 answer"_s.arg(Wire::P6::type.of(id));
        reader.addCode(id);
        reader.setFault(u"a type without answer"_s);
    }
}

QString dateTime(qint64 stamp)
{
    const auto time = QDateTime::fromMSecsSinceEpoch(stamp / 1000).toUTC();
    return u"%1%2Z"_s.arg(time.toString(u"yyyy-MM-ddThh:mm:ss.zzz"_s))
        .arg(qAbs(stamp % 1000), 3, 10, QLatin1Char('0'));
}

Decoded decodeBusError(const QCanBusFrame &frame)
{
    Decoded decoded;
    decoded.message = u"bus error"_s;
    QStringList names;
    for (const auto &[error, name] : busErrors) {
        if (frame.error() & error)
            names += name;
    }
    decoded.fault = names.isEmpty() ? u"unknown"_s : names.join(u", "_s);
    return decoded;
}

} // namespace

qint64 microSeconds(const QCanBusFrame::TimeStamp &stamp)
{
    return stamp.seconds() * 1'000'000 + stamp.microSeconds();
}

Decoded decode(const QCanBusFrame &frame)
{
    if (frame.frameType() == QCanBusFrame::ErrorFrame)
        return decodeBusError(frame);

    Decoded decoded;
    if (!frame.hasExtendedFrameFormat() || frame.frameType() != QCanBusFrame::DataFrame) {
        decoded.message = frame.frameType() == QCanBusFrame::DataFrame ? u"11-bit frame"_s
                                                                       : u"remote frame"_s;
        return decoded;
    }
    const quint32 id = frame.frameId();
    const QByteArray payload = frame.payload();
    Reader reader(decoded, payload);
    decoded.from = nodeName(Wire::sourceNode.of(id));
    decoded.to = nodeName(Wire::destinationNode.of(id));
    switch (Wire::protocolType.of(id)) {
    case Wire::protocolP3:
        decodeP3(decoded, reader, id);
        break;
    case Wire::protocolP5:
        decoded.message = u"P5 message"_s;
        break;
    case Wire::protocolP6:
        if (Wire::destinationNode.of(id) == Wire::nodeShipwright)
            decodeTransferAnswer(decoded, reader, id);
        else
            decodeTransferCommand(decoded, reader, id);
        break;
    default:
        decoded.message = u"protocol type %1"_s.arg(Wire::protocolType.of(id));
    }
    return decoded;
}

QJsonValue Decoded::field(const QString &name) const
{
    for (const Field &field : fields) {
        if (field.name == name)
            return field.value;
    }
    return QJsonValue::Undefined;
}

QString Decoded::text() const
{
    QStringList texts;
    for (const Field &field : fields)
        texts += field.text;
    return texts.isEmpty() ? message : message + u": "_s + texts.join(u", "_s);
}

QString decodedLine(const QCanBusFrame &frame, const Decoded &decoded, std::optional<qint64> start)
{
    const qint64 stamp = microSeconds(frame.timeStamp());
    QString line = u"%1  %2  %3  "_s
                       .arg(start ? u"%1"_s.arg(double(stamp - *start) / 1e6, 10, 'f', 6)
                                  : dateTime(stamp))
                       .arg(idText(frame), 8)
                       .arg(hexBytes(frame.payload()), -23);
    if (!decoded.from.isEmpty())
        line += decoded.from + u" > "_s + decoded.to + u"  "_s;
    line += decoded.text();
    if (!decoded.fault.isEmpty())
        line += u"  ! "_s + decoded.fault;
    return line;
}

QJsonObject decodedObject(const QCanBusFrame &frame, const Decoded &decoded)
{
    QJsonObject fields;
    for (const Decoded::Field &field : decoded.fields)
        fields.insert(field.name, field.value);
    QJsonObject object{{u"timestamp"_s, double(microSeconds(frame.timeStamp())) / 1e6},
                       {u"id"_s, idText(frame)},
                       {u"data"_s, QString::fromLatin1(frame.payload().toHex()).toUpper()},
                       {u"from"_s, decoded.from},
                       {u"to"_s, decoded.to},
                       {u"message"_s, decoded.message},
                       {u"fields"_s, fields}};
    if (!decoded.fault.isEmpty())
        object.insert(u"fault"_s, decoded.fault);
    return object;
}

} // namespace Shipwright
