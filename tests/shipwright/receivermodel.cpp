#include "receivermodel.h"

#include <QDate>
#include <QtEndian>

#include <utility>
#include <zlib.h>

namespace {

using Defect = ReceiverModel::Defect;

const std::pair<const char *, Defect> defects[] = {
    {"accepts-any-version", Defect::AcceptsAnyVersion},
    {"accepts-frames-out-of-order", Defect::AcceptsFramesOutOfOrder},
    {"accepts-initiate-of-seven-bytes", Defect::AcceptsInitiateOfSevenBytes},
    {"accepts-other-destinations", Defect::AcceptsOtherDestinations},
    {"accepts-other-interfaces", Defect::AcceptsOtherInterfaces},
    {"accepts-other-sources", Defect::AcceptsOtherSources},
    {"answers-complete-twice", Defect::AnswersCompleteTwice},
    {"answers-from-destination", Defect::AnswersFromDestination},
    {"answers-record-start", Defect::AnswersRecordStart},
    {"answers-unknown-operations", Defect::AnswersUnknownOperations},
    {"answers-unknown-types", Defect::AnswersUnknownTypes},
    {"appends-refused-records", Defect::AppendsRefusedRecords},
    {"drops-parameters-on-refusal", Defect::DropsParametersOnRefusal},
    {"echoes-file-crc", Defect::EchoesFileCrc},
    {"ignores-record-crc", Defect::IgnoresRecordCrc},
    {"ignores-slot", Defect::IgnoresSlot},
    {"ignores-second-destination", Defect::IgnoresSecondDestination},
    {"keeps-frame-number", Defect::KeepsFrameNumber},
    {"keeps-old-content", Defect::KeepsOldContent},
    {"pads-short-frames", Defect::PadsShortFrames},
    {"refuses-long-handshake", Defect::RefusesLongHandshake},
    {"refuses-short-record-end", Defect::RefusesShortRecordEnd},
    {"swaps-crc-bytes", Defect::SwapsCrcBytes},
};

quint32 crcOf(const QByteArray &data)
{
    return quint32(crc32(0, reinterpret_cast<const Bytef *>(data.constData()), uInt(data.size())));
}

/// A payload of any size but four stands for the CRC 0.
quint32 crcFrom(const QByteArray &payload)
{
    return payload.size() == 4 ? qFromLittleEndian<quint32>(payload.constData()) : 0;
}

} // namespace

QStringList ReceiverModel::defectNames()
{
    QStringList names;
    for (const auto &defect : defects)
        names += QString::fromLatin1(defect.first);
    return names;
}

std::optional<Defect> ReceiverModel::defectFromName(const QString &name)
{
    for (const auto &[known, defect] : defects) {
        if (name == QLatin1StringView(known))
            return defect;
    }
    return std::nullopt;
}

QList<QCanBusFrame> ReceiverModel::handle(const QCanBusFrame &frame)
{
    const quint32 id = frame.frameId();
    m_destination = id >> 16 & 0x1F;
    const bool fromTool = (id >> 21 & 0x1F) == 24 || has(Defect::AcceptsOtherSources);
    bool toReceiver = m_destination == 26 || m_destination == 14
        || has(Defect::AcceptsOtherDestinations);
    if (m_destination == 14 && has(Defect::IgnoresSecondDestination))
        toReceiver = false;
    if (!frame.hasExtendedFrameFormat() || !fromTool || !toReceiver)
        return {};
    switch (id >> 26) {
    case 3:
        return (id & 0x4000) != 0 ? QList<QCanBusFrame>{} : handleCommand(id, frame.payload());
    case 6:
        return handleTransfer(id, frame.payload());
    default:
        return {};
    }
}

QList<QCanBusFrame> ReceiverModel::handleCommand(quint32 id, const QByteArray &payload)
{
    if ((id >> 6 & 0xF) != 11 && !has(Defect::AcceptsOtherInterfaces))
        return {};
    const auto answer = [this, id](quint32 code, const QByteArray &data = {}) {
        const quint32 source = has(Defect::AnswersFromDestination) ? m_destination : 26;
        const quint32 slot = has(Defect::IgnoresSlot) ? 0 : id & 0x1800;
        return QList{QCanBusFrame(0x0C184000 | source << 21 | slot | code, data)};
    };
    const auto byte = [&payload](qsizetype i) { return uchar(payload.at(i)); };
    switch (id & 0x3F) {
    case 0:
        if (!payload.startsWith(QByteArrayLiteral("\xA5\x5A"))
            || (payload.size() > 2 && has(Defect::RefusesLongHandshake)))
            return answer(186);
        return answer(0, QByteArrayLiteral("\x5A\xA5"));
    case 1:
        if (payload.size() != 6 || !QDate(2000 + byte(0), byte(1), byte(2)).isValid())
            return answer(186, payload);
        m_clock = payload;
        return answer(0, payload);
    case 2: {
        m_serialLength = payload.isEmpty() ? 0 : byte(0);
        const int first = qMin(m_serialLength, 7);
        const bool isWhole = payload.size() >= first + 1;
        if (isWhole)
            m_serialNumber = QString::fromUtf8(payload.mid(1, first));
        return answer(isWhole || m_serialLength <= 7 ? 0 : 186);
    }
    case 3: {
        const int rest = m_serialLength <= 7 ? 7 : m_serialLength - 7;
        if (payload.size() >= rest)
            m_serialNumber += QString::fromUtf8(payload.left(rest));
        return answer(0);
    }
    case 4:
        return answer(0);
    default:
        return has(Defect::AnswersUnknownOperations) ? answer(186) : QList<QCanBusFrame>{};
    }
}

QList<QCanBusFrame> ReceiverModel::handleTransfer(quint32 id, const QByteArray &payload)
{
    const quint32 type = id >> 12 & 0xF;
    const auto answer = [this, type](quint32 code, const QByteArray &data) {
        const quint32 source = has(Defect::AnswersFromDestination) ? m_destination : 26;
        return QList{QCanBusFrame(0x18180000 | source << 21 | type << 12 | code, data)};
    };
    const bool versionFits = has(Defect::AcceptsAnyVersion)
        || (payload.size() > 1 && uchar(payload.at(1)) >> 2 == 2);
    switch (type) {
    case 0: {
        const QByteArray parameters = QByteArray::fromHex("0a3fe803e80360ea");
        if (payload.size() < 6 || !versionFits)
            return answer(29,
                          has(Defect::DropsParametersOnRefusal) ? QByteArray(8, '\0') : parameters);
        m_fileType = uchar(payload.at(0));
        m_fileSize = qFromLittleEndian<quint32>(payload.constData() + 2);
        return answer(0, parameters);
    }
    case 1: {
        const bool sizeFits = payload.size() == 8
            || (payload.size() == 7 && has(Defect::AcceptsInitiateOfSevenBytes));
        if (!sizeFits || !versionFits)
            return answer(30, QByteArray(8, '\0'));
        m_fileType = uchar(payload.at(0));
        m_openType = m_fileType;
        if (!has(Defect::KeepsOldContent))
            m_files[m_fileType].clear();
        return answer(0, QByteArray(8, '\0'));
    }
    case 2:
        if (payload.size() == 5) {
            m_recordLength = uchar(payload.at(0)) * 8;
            m_record = QByteArray(m_recordLength, '\0');
            if (!has(Defect::KeepsFrameNumber))
                m_expectedFrame = 0;
        }
        return has(Defect::AnswersRecordStart) ? answer(0, {}) : QList<QCanBusFrame>{};
    case 15:
        dataFrame(id >> 4 & 0x3F, payload);
        return {};
    case 3: {
        const QByteArray data = recordData();
        const bool isRight = crcOf(data) == crcFrom(payload) || has(Defect::IgnoresRecordCrc);
        if (m_openType >= 0 && (isRight || has(Defect::AppendsRefusedRecords)))
            m_files[m_openType] += data;
        if (payload.size() != 4 && has(Defect::RefusesShortRecordEnd))
            return answer(186, QByteArray(1, '\1'));
        return isRight ? answer(0, QByteArray(1, '\0')) : answer(186, QByteArray(1, '\1'));
    }
    case 4: {
        m_openType = -1;
        const quint32 crc = crcOf(m_files.value(m_fileType).left(m_fileSize));
        const bool isRight = crc == crcFrom(payload) || has(Defect::EchoesFileCrc);
        if (isRight && m_fileType == 0)
            ++m_installations;
        QByteArray data(4, '\0');
        if (has(Defect::SwapsCrcBytes))
            qToBigEndian(crc, data.data());
        else
            qToLittleEndian(has(Defect::EchoesFileCrc) ? crcFrom(payload) : crc, data.data());
        const QList<QCanBusFrame> answers = answer(isRight ? 0 : 186, data);
        return has(Defect::AnswersCompleteTwice) ? answers + answers : answers;
    }
    default:
        return has(Defect::AnswersUnknownTypes) ? answer(186, {}) : QList<QCanBusFrame>{};
    }
}

void ReceiverModel::dataFrame(qsizetype number, const QByteArray &payload)
{
    if (number != m_expectedFrame && !has(Defect::AcceptsFramesOutOfOrder))
        return;
    if (number * 8 + payload.size() > m_record.size())
        return;
    m_record.replace(number * 8, payload.size(), payload);
    if (!has(Defect::PadsShortFrames))
        m_recordLength -= 8 - payload.size();
    m_expectedFrame = number + 1;
}

QByteArray ReceiverModel::recordData() const
{
    return m_record.left(qMax<qsizetype>(0, m_recordLength));
}
