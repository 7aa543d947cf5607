#pragma once

#include "wire.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>

#include <functional>
#include <optional>

namespace Shipwright {

class Link;

struct PeerSettings
{
    quint32 slot = 0;
    quint32 destination = Wire::nodeDockhand;
    std::optional<qint64> timeout; ///< milliseconds; replaces the receiver's own limits
    int retries = 5;               ///< how often to resend a record
};

/// What the receiver says about itself in its answer to Transfer Info.
struct ReceiverParameters
{
    quint32 version = 0;
    bool flag = false;
    quint32 frameLimit = 0;         ///< highest frame number of a record
    quint32 negotiationTimeout = 0; ///< parameter 1, milliseconds
    quint32 recordTimeout = 0;      ///< parameter 2, milliseconds
    quint32 completeTimeout = 0;    ///< parameter 3, milliseconds

    /// Data frames in a record: as many as the receiver takes and the wire can number.
    quint32 recordFrames() const;
};

struct TransferProgress
{
    enum class Phase { Sending, Confirming, Confirmed };

    Phase phase = Phase::Sending;
    quint64 bytes = 0; ///< confirmed by the receiver, record by record
    quint64 total = 0;
    quint32 records = 0;
    quint32 totalRecords = 0;
    quint32 repeated = 0; ///< records sent again
    quint64 frames = 0;   ///< data frames sent, repeated ones included
};

struct TransferResult
{
    quint32 crc = 0;
    quint64 bytes = 0;
    quint32 records = 0;
    quint32 repeated = 0;
    qint64 milliseconds = 0;
};

/// The service tool's side of the protocols. Every call waits for the receiver's answer and throws
/// a Failure if there is none or it reports a failure.
class Peer
{
public:
    using ProgressHandler = std::function<void(const TransferProgress &)>;

    Peer(Link &link, const PeerSettings &settings);

    void startConfiguration();
    void setDateTime(const QDateTime &dateTime);
    void setSerialNumber(const QString &serialNumber);
    /// These throw if the value cannot be sent.
    static void checkDateTime(const QDateTime &dateTime);
    static void checkSerialNumber(const QString &serialNumber);
    void endConfiguration();
    /// Sends an empty Transfer Info. The receiver refuses it, so a transfer in progress is not
    /// disturbed; the refusal carries the parameters.
    ReceiverParameters receiverParameters();
    TransferResult sendFile(quint32 fileType, const QByteArray &content,
                            const ProgressHandler &onProgress);

    /// The state that a failed session left the receiver in, for the user.
    QString receiverState() const;

private:
    struct Answer
    {
        quint32 code = 0;
        QByteArray payload;
    };
    struct Expectation
    {
        quint32 idMask; ///< identifier bits to compare
        quint32 id;
        QString what; ///< name of what was sent, for messages
        qint64 timeout;
        QString unanswered; ///< receiverState() until the answer comes
    };

    /// A transfer in progress.
    struct Transfer
    {
        quint32 fileType;
        const QByteArray &content;
        const ProgressHandler &onProgress;
        quint32 crc;
        qsizetype recordSize;
        TransferProgress progress;
    };

    Answer exchange(quint32 frameId, const QByteArray &payload, const Expectation &expected);
    Answer command(quint32 operation, const QByteArray &payload, const QString &what,
                   const QString &unanswered = {});
    void expectSuccess(const Answer &answer, const QString &what, const QString &reason) const;

    Answer transferMessage(quint32 type, const QByteArray &payload, const QString &what,
                           qint64 timeout, qsizetype answerSize, const QString &unanswered = {});
    ReceiverParameters announce(const QByteArray &payload, bool mayBeRefused);
    void negotiate(Transfer &transfer);
    void sendRecords(Transfer &transfer);
    bool sendRecord(Transfer &transfer, quint32 number, const QByteArray &data);
    void confirm(Transfer &transfer);

    qint64 limit(quint32 receiverLimit) const;

    Link &m_link;
    PeerSettings m_settings;
    ReceiverParameters m_parameters;
    QString m_state; ///< of the receiver, if the user would not expect it
    bool m_configuring = false;
};

} // namespace Shipwright
