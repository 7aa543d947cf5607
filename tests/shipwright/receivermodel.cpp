#include "receivermodel.h"

#include <QDate>
#include <QtEndian>

#include <zlib.h>

namespace {

quint32 crcOf(const QByteArray &data)
{
    return static_cast<quint32>(crc32(0, reinterpret_cast<const Bytef *>(data.constData()),
                                      static_cast<uInt>(data.size())));
}

/// A payload whose size is not four counts as CRC 0.
quint32 crcFrom(const QByteArray &payload)
{
    return payload.size() == 4 ? qFromLittleEndian<quint32>(payload.constData()) : 0;
}

} // namespace

ReceiverModel::Answers ReceiverModel::handle(const QCanBusFrame &frame)
{
    const quint32 id = frame.frameId();
    const quint32 source = id >> 21 & 0x1F;
    const quint32 destination = id >> 16 & 0x1F;
    if (!frame.hasExtendedFrameFormat() || source != 24 || (destination != 26 && destination != 14))
        return {};
    switch (id >> 26) {
    case 3:
        return handleCommand(id, frame.payload());
    case 6:
        return handleTransfer(id, frame.payload());
    default:
        return {};
    }
}

ReceiverModel::Answers ReceiverModel::handleCommand(quint32 id, const QByteArray &payload)
{
    const bool isResponse = (id & 0x4000) != 0;
    if (isResponse || (id >> 6 & 0xF) != 11)
        return {};
    const auto answer = [id](quint32 code, const QByteArray &data = {}) {
        return Answers{QCanBusFrame(0x0F584000 | (id & 0x1800) | code, data)};
    };
    const auto byte = [&payload](qsizetype i) { return static_cast<uchar>(payload.at(i)); };
    switch (id & 0x3F) {
    case 0:
        return payload.startsWith(QByteArrayLiteral("\xA5\x5A"))
            ? answer(0, QByteArrayLiteral("\x5A\xA5"))
            : answer(186);
    case 1:
        if (payload.size() != 6 || !QDate(2000 + byte(0), byte(1), byte(2)).isValid())
            return answer(186, payload);
        clock = payload;
        return answer(0, payload);
    case 2: {
        serialLength = payload.isEmpty() ? 0 : byte(0);
        const int first = qMin(serialLength, 7);
        const bool isWhole = payload.size() >= first + 1;
        if (isWhole)
            serialNumber = QString::fromUtf8(payload.mid(1, first));
        return answer(isWhole || serialLength <= 7 ? 0 : 186);
    }
    case 3: {
        const int rest = serialLength <= 7 ? 7 : serialLength - 7;
        if (payload.size() >= rest)
            serialNumber += QString::fromUtf8(payload.left(rest));
        return answer(0);
    }
    case 4:
        return answer(0);
    default:
        return {};
    }
}

ReceiverModel::Answers ReceiverModel::handleTransfer(quint32 id, const QByteArray &payload)
{
    const quint32 type = id >> 12 & 0xF;
    const auto answer = [type](quint32 code, const QByteArray &data) {
        return Answers{QCanBusFrame(0x1B580000 | type << 12 | code, data)};
    };
    const bool versionFits = payload.size() > 1 && static_cast<uchar>(payload.at(1)) >> 2 == 2;
    switch (type) {
    case 0: {
        const QByteArray parameters = QByteArray::fromHex("0a3fe803e80360ea");
        if (payload.size() < 6 || !versionFits)
            return answer(29, parameters);
        fileType = static_cast<uchar>(payload.at(0));
        fileSize = qFromLittleEndian<quint32>(payload.constData() + 2);
        return answer(0, parameters);
    }
    case 1:
        if (payload.size() != 8 || !versionFits)
            return answer(30, QByteArray(8, '\0'));
        fileType = static_cast<uchar>(payload.at(0));
        place = qMin(fileType, 4);
        isOpen = true;
        files[place].clear();
        return answer(0, QByteArray(8, '\0'));
    case 2:
        if (payload.size() == 5) {
            recordLength = qsizetype(static_cast<uchar>(payload.at(0))) * 8;
            record = QByteArray(recordLength, '\0');
            expectedFrame = 0;
        }
        return {};
    case 15:
        dataFrame(id >> 4 & 0x3F, payload);
        return {};
    case 3: {
        const QByteArray data = record.left(qMax<qsizetype>(0, recordLength));
        if (crcOf(data) != crcFrom(payload))
            return answer(186, QByteArray(1, '\1'));
        if (isOpen)
            files[place] += data;
        return answer(0, QByteArray(1, '\0'));
    }
    case 4: {
        isOpen = false;
        const quint32 crc = crcOf(files.value(place).left(fileSize));
        const bool isRight = crc == crcFrom(payload);
        if (isRight && fileType == 0)
            ++installations;
        QByteArray data(4, '\0');
        qToLittleEndian(crc, data.data());
        return answer(isRight ? 0 : 186, data);
    }
    default:
        return {};
    }
}

void ReceiverModel::dataFrame(qsizetype number, const QByteArray &payload)
{
    if (number != expectedFrame || (number + 1) * 8 > record.size())
        return;
    record.replace(number * 8, payload.size(), payload);
    recordLength -= 8 - payload.size();
    expectedFrame = number + 1;
}
