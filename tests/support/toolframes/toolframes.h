#pragma once

#include <QByteArray>
#include <QCanBusFrame>
#include <QList>

/// A service tool's messages as lists of frames, which a test can deliver, shorten and change.
namespace ToolFrames {

using List = QList<QCanBusFrame>;

/// CRC-32 of \a data, computed differently from the receiver's.
quint32 crc32(const QByteArray &data);

QCanBusFrame p3(quint32 operation, const QByteArray &payload, quint32 slot = 0);
QCanBusFrame p6(quint32 type, const QByteArray &payload, quint32 frameNumber = 0);

QCanBusFrame startConfiguration(quint32 slot = 0);
QCanBusFrame endConfiguration();
/// One or two frames, at most 15 bytes.
List setSerialNumber(const QByteArray &serialNumber);

QCanBusFrame transferInfo(quint8 fileType, quint32 fileSize);
QCanBusFrame initiateTransfer(quint8 fileType, quint32 records);
/// Record Start, at most 64 Data Frames and Record End.
List record(quint32 number, const QByteArray &content);
QCanBusFrame transferComplete(quint32 crc);

/// A whole transfer, from Transfer Info to Transfer Complete.
List transfer(quint8 fileType, const QByteArray &content);
/// A whole session: start of configuration, transfer of a configuration, end of configuration.
List configurationDownload(const QByteArray &content);

} // namespace ToolFrames
