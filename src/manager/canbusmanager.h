#pragma once

#include "kv_multipacket_transfer.h"

#include <QByteArray>
#include <QCanBusDevice>
#include <QCanBusFrame>
#include <QObject>
#include <QString>

/// The receiving side of the service link: opens the CAN interface "can0", answers the service
/// tool's messages, stores and installs the files that it sends, and reports progress to the
/// display.
///
/// Everything happens in the thread that owns the object. Each handler runs to completion before
/// the next frame is read. wire.h describes identifiers and payloads, paths.h the places of files.
///
/// No handler throws or returns a result: a failure is logged and, if the protocol has an answer
/// for it, answered on the bus.
class CanBusManager : public QObject
{
    Q_OBJECT

public:
    /// Touches no device; \a parent may be null.
    explicit CanBusManager(QObject *parent = nullptr);
    /// Closes an output file that is still open. Neither disconnects nor deletes the CAN device.
    ~CanBusManager() override;

    QCanBusDevice *canDevice = nullptr;          ///< created by init(), never deleted
    KV_MultiPacket_Transfer multiPacketTransfer; ///< the P6 transfer session
    QString serialNumber;                        ///< assembled so far; "NotReceived" after init()
    quint32 serialNumberLength = 0;              ///< its announced length in bytes, 0 to 255

    /// Creates the SocketCAN device for "can0", configures it for classic 29-bit data frames
    /// without loopback, connects its signals and starts the connection.
    /// Returns false if the device cannot be created (logged; nothing else is set then) or does
    /// not connect. Call it once.
    bool init();

    /// Sends one classic data frame with the 29-bit identifier \a frameId and \a payload, 0 to 8
    /// bytes. A frame that the device refuses is logged and lost.
    void writeFrame(quint32 frameId, const QByteArray &payload);

    /// The display word of a file type code: "Configuration" (0), "Menu" (1), "Generic" (2),
    /// "Package" (3), otherwise "Unknown".
    QString getFileTypeString(quint32 fileType);

    /// The path of a received file of type \a fileType; for an unknown code "Unknown", which is a
    /// name in the working directory.
    QString getFilePathString(quint32 fileType);

    /// CRC-32 (IEEE 802.3, that of zlib) of the \a length bytes of \a data from index \a offset.
    /// 0 for a length of 0 and for a range whose end exceeds 32 bits. The part of the range outside
    /// of \a data is left out.
    quint32 CalculateCRC32(QByteArray data, long offset, quint32 length);

    /// CRC-32 of \a length bytes of the file \a path from byte \a offset, or fewer at the end of
    /// the file. 0 if \a length is not positive, or if the file cannot be opened or positioned
    /// (logged).
    quint32 CalculateCRC32(QString path, long offset, long length);

    /// Makes the received configuration file the live one: removes the live parameter file and
    /// databases, then copies it to the backup and live places. Failures are logged; every step
    /// runs even if an earlier one failed.
    void processReceivedConfigFile();

    /// Installs the received menu archive: clears the three menu directories, copies the archive to
    /// the backup and live ones and unpacks it in each. Failures are logged; every step runs even
    /// if an earlier one failed. Blocks until `tar` has ended. No transfer calls it.
    void processReceivedMenuFile();

    /// Unpacks `menu.tar` of the directory \a dir, which ends in "/", into it.
    void DecompressMenuFile(QString dir);

    /// Removes the files of an earlier menu in \a dir, which ends in "/", but not the archive.
    void CleanUpMenuDirectory(QString dir);

signals:
    /// The contents of the display: two lines of text and the progress, 0.0 to 1.0. Each emission
    /// replaces all six values.
    void statusUpdated(QString actionName1_text, bool actionName1_visible, QString actionName2_text,
                       bool actionName2_visible, double progressInd_percent,
                       bool progressInd_visible);

private slots:
    // Device events (canlink.cpp)

    /// Drains the receive queue and routes each frame by its protocol type.
    void onFramesReceived();
    void canFramesWritten(quint64 framesCount);
    void canFrameError(QCanBusDevice::CanBusError error);
    void canStateChanged(QCanBusDevice::CanBusDeviceState state);

    // Dispatch by protocol (p3.cpp, canlink.cpp, p6.cpp)

    /// Calls the handler of a command from the service tool; others are logged and not answered.
    void processP3CanCommand(QCanBusFrame frame);
    /// Logs only: the receiver sends no commands that could be answered.
    void processP3CanResponse(QCanBusFrame frame);
    /// Logs only. Not called: an event's identifier cannot be told from a command's.
    void processP3CanEvent(QCanBusFrame frame);
    /// Logs only.
    void processP5CanMessage(QCanBusFrame frame);
    /// Calls the handler of a message from the service tool; others are dropped.
    void processP6CanMessage(QCanBusFrame frame);

    // P3 senders (p3.cpp): every field is masked to its width; \a data is the payload

    void sendP3CommandMessage(quint32 src, quint32 dest, quint32 slotNum, quint32 interfaceId,
                              quint32 opId, const QByteArray &data);
    void sendP3ResposesMessage(quint32 src, quint32 dest, quint32 slotNum, quint32 responseNum,
                               const QByteArray &data);
    void sendP3EventMessage(quint32 src, quint32 dest, quint32 eventNum, const QByteArray &data);

    // P3 commands (p3.cpp): each is answered in its own slot, with result code 0 or 186

    /// Payload a5 5a, more is ignored. Answered with 5a a5, or with 186 and no payload.
    void processP3StartConfigResponse(QCanBusFrame frame);
    /// Payload: year - 2000, month, day, hour, minute, second in UTC, one byte each. Answered
    /// with the same payload. An invalid time of day counts as midnight; an invalid date or another
    /// size is answered with 186. Does not check whether the clock was set.
    void processP3SetDateTimeResponse(QCanBusFrame frame);
    /// Payload: length L of the serial number in bytes, then its first min(L, 7) bytes, UTF-8.
    /// Stores it when L is 7 or less. Answered with no payload.
    void processP3SetSerialResponse(QCanBusFrame frame);
    /// Payload: the remaining L - 7 bytes, which are appended; stores the serial number.
    /// Answered with no payload.
    void processP3SetSerialExtResponse(QCanBusFrame frame);
    /// Any payload. Answered with 0 and no payload.
    void processP3EndConfigurationResponse(QCanBusFrame frame);

    // P6 messages (p6.cpp): numbers are little-endian

    /// Payload, at least 6 bytes: file type | version 2 in bits 2-7 | file size, 32 bits.
    /// Answered with 0 or 29 and the receiver parameters, 8 bytes: version 2 in bits 2-7, flag in
    /// bit 1, bit 8 of the frame limit in bit 0 | its bits 0-7 | parameters 1, 2, 3, 16 bits each.
    void processP6TransferInfoCommand(QCanBusFrame frame);
    /// Payload, 8 bytes: file type | version 2 in bits 2-7 | 2 bytes not read | number of
    /// records, 32 bits. Opens the output file. Answered with 0 or 30 and 8 zero bytes; also
    /// with 0 when the file cannot be opened, which is only logged.
    void processP6InitTransferCommand(QCanBusFrame frame);
    /// Payload, 5 bytes: number of data frames that follow | record number, 32 bits. Not answered.
    void processP6RecordStartCommand(QCanBusFrame frame);
    /// Frame number in identifier bits 4-9; payload: the file's bytes, 8 in every frame but the
    /// record's last. Not answered; a frame out of order or outside of the record is dropped.
    void processP6DataFrameCommand(QCanBusFrame frame);
    /// Payload: CRC-32 of the record, 32 bits; another size than 4 bytes counts as CRC 0.
    /// Appends a record that matches to the output file. Answered with 0 and the byte 00, also
    /// when the file could not be written, which is only logged; or with 186 and the byte 01.
    void processP6RecordEndCommand(QCanBusFrame frame);
    /// Payload: CRC-32 of the file, 32 bits; another size than 4 bytes counts as CRC 0. Closes
    /// and checks the file, and installs a configuration. Answered with 0 or 186 and the CRC-32
    /// found, 32 bits.
    void processP6TransferCompleteCommand(QCanBusFrame frame);

    /// Sends a P6 message; every field is masked to its width; \a data is the payload.
    void sendP6ResposesMessage(quint32 src, quint32 dest, quint32 p6Type, quint32 cmdResp,
                               quint32 responseNum, const QByteArray &data);

private:
    quint32 storeSerialNumber(const char *handler);
};
