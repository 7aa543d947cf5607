#pragma once

#include <QByteArray>
#include <QFile>
#include <QObject>
#include <QString>

/// The P6 transfer session: plain data, read and written by the handlers of CanBusManager.
/// No field is reset between transfers; each message overwrites the fields that it carries.
class KV_MultiPacket_Transfer : public QObject
{
    Q_OBJECT

public:
    explicit KV_MultiPacket_Transfer(QObject *parent = nullptr)
        : QObject(parent)
    {
    }

    QFile outputFile;       ///< open from Initiate Transfer to Transfer Complete
    QString outputFilePath; ///< full path of outputFile
    quint32 fileSize = 0;   ///< announced size of the file in bytes; length of the file's CRC
    quint32 fileType = 0;   ///< file type code, 0 to 255
    bool transferInProgress = false; ///< first Record Start to end of Transfer Complete
    quint32 infoParam1 = 0;          ///< receiver parameter; its low 16 bits are reported
    quint32 infoParam2 = 0;          ///< receiver parameter; its low 16 bits are reported
    quint32 infoParam3 = 0;          ///< receiver parameter; its low 16 bits are reported
    quint32 infoFrameLimit = 0;      ///< receiver parameter; its low 9 bits are reported
    quint8 infoFlag = 0;             ///< receiver flag, 0 or 1
    quint32 numberOfBlocks = 0;      ///< announced number of records; denominator of the progress
    quint32 currentBlockNumber = 0;  ///< the record being received, as its Record Start says
    qint32 blockDataLength = 0;      ///< valid bytes in blockBuffer; short frames make it smaller
    QByteArray blockBuffer;          ///< record being received; frame k begins at index 8 * k
    quint32 expectedFrameNumber = 0; ///< the number that the next Data Frame must carry
    quint32 framesToFollow = 0;      ///< announced number of the record's data frames, 0 to 255
    QByteArray auxBuffer1;           ///< not used
    QByteArray auxBuffer2;           ///< not used
};
