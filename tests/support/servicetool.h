#pragma once

#include "benchclient.h"

/// The service tool's part of the protocols, written out for tests: nothing of it is shared with
/// the receiver or with the tools.
class ServiceTool : public BenchClient
{
public:
    using BenchClient::BenchClient;

    /// Sends frames and returns the frame that comes in answer.
    QByteArray request(const QByteArray &frames) { return send(frames) ? receive() : QByteArray(); }

    static QByteArray transferInfo(quint8 fileType, quint32 size);
    static QByteArray initiateTransfer(quint8 fileType, quint32 records);
    /// A record with at most 512 bytes: its start, its data frames and its end.
    static QByteArray record(quint32 number, const QByteArray &data);
    static QByteArray transferComplete(quint32 crc);

    /// CRC-32 as in IEEE 802.3.
    static quint32 crc32(const QByteArray &data);
};
