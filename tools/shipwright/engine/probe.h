#pragma once

#include "crc32.h"
#include "link.h"

#include "wire.h"

#include <QByteArray>
#include <QCanBusFrame>
#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>

#include <optional>

namespace Shipwright {

/// A frame that went to the receiver or came from it.
struct Exchanged
{
    Direction direction;
    QCanBusFrame frame;
};

/// Thrown when the receiver does not do what is due.
struct Deviation
{
    QString due;
    QString came;
    bool isNoAnswer = false; ///< nothing came at all
};

struct ProbeLimits
{
    qint64 answer = 1000;     ///< for an answer, in milliseconds
    qint64 complete = 10'000; ///< for the answer to Transfer Complete of a small file
    qint64 install = 60'000;  ///< the same, when the receiver installs the file
};

/// What a check of the self-test sends to the receiver, and what is due from it.
class Probe
{
public:
    Probe(Link &link, const ProbeLimits &limits);

    /// Learns how the receiver answers a harmless question; false if it does not.
    bool findReceiver();
    /// Forgets the frames and settings of the check before.
    void begin();
    /// Waits for late answers of a check that was broken off, and drops them.
    void settle();

    const QList<Exchanged> &frames() const { return m_frames; }
    /// Index in frames() of the last frame sent, except questions; -1 if there is none.
    qsizetype cause() const { return m_cause; }
    /// What has been overwritten on the receiver so far, in words.
    QStringList changes() const;

    quint32 destination = Wire::nodeDockhand;
    quint32 unreadBits = 0; ///< set in every identifier that is sent

    // ---- What goes out
    void send(quint32 id, const QByteArray &payload);
    void command(quint32 operation, const QByteArray &payload, quint32 slot = 0);
    void message(quint32 type, const QByteArray &payload);
    void initiate(quint32 fileType, quint32 records);
    void recordStart(qsizetype frames, quint32 number = 0);
    void dataFrame(quint32 number, const QByteArray &payload);
    /// \a data in frames numbered from 0.
    void dataFrames(const QByteArray &data);
    void recordEnd(quint32 crc);
    void complete(quint32 crc);
    void pause(qint64 milliseconds) { m_link.pause(milliseconds); }

    // ---- What is due
    void expectResponse(quint32 code, const QByteArray &payload = {}, quint32 slot = 0);
    /// Any parameters, but the same in every answer.
    void expectParameters(quint32 code);
    void expectInitiated();
    void expectInitiateRefused();
    void expectRecordAccepted();
    void expectRecordRefused();
    void expectFile(quint32 crc);
    void expectFileRefused(quint32 crc);
    /// Checks for silence without waiting. The receiver handles frames in order, so the answer to a
    /// harmless question sent afterwards must come next.
    void expectSilence();
    /// The same, and no answer is late either.
    void expectLastingSilence();
    /// Nothing comes for a second.
    void expectNothing();

    // ---- Whole steps
    void announce(quint32 fileType, quint32 size);
    void open(quint32 fileType, quint32 size, quint32 records);
    void record(const QByteArray &data, quint32 number = 0);
    /// Ends a record that must have arrived as \a data.
    void endRecord(const QByteArray &data);
    /// Ends a transfer whose file must now hold \a data.
    void close(const QByteArray &data);
    void transfer(quint32 fileType, const QByteArray &data);

private:
    struct Message
    {
        quint32 id = 0;
        QByteArray payload = {};
    };

    void put(quint32 id, const QByteArray &payload);
    void expect(quint32 id, const QByteArray &payload);
    void expectAnswer(quint32 type, quint32 code, const QByteArray &payload);
    void listen(qint64 limit);
    QCanBusFrame next(const QString &due);
    /// The next frame from the receiver, or nothing when \a limit passes first.
    std::optional<QCanBusFrame> receive(qint64 limit);

    Link &m_link;
    const ProbeLimits m_limits;
    qint64 m_limit;
    Message m_question{};
    Message m_questionAnswer{};
    QByteArray m_parameters;
    QList<Exchanged> m_frames;
    qsizetype m_cause = -1;
    quint32 m_fileType = Wire::FileType::generic; ///< of the last file opened
    QSet<quint32> m_files;                        ///< of all files opened
    bool m_clockSet = false;
    bool m_serialNumberSet = false;
};

QByteArray littleEndian(quint32 number);

} // namespace Shipwright
