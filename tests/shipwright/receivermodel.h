#pragma once

#include <QCanBusFrame>
#include <QHash>
#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>

#include <optional>

/// A receiver in memory, written from the protocol's own numbers and sharing nothing with the
/// engine. With a defect it breaks the protocol in one way.
class ReceiverModel
{
public:
    enum class Defect {
        AcceptsAnyVersion,
        AcceptsFramesOutOfOrder,
        AcceptsInitiateOfSevenBytes,
        AcceptsOtherDestinations,
        AcceptsOtherInterfaces,
        AcceptsOtherSources,
        AnswersCompleteTwice,
        AnswersFromDestination,
        AnswersRecordStart,
        AnswersUnknownOperations,
        AnswersUnknownTypes,
        AppendsRefusedRecords,
        DropsParametersOnRefusal,
        EchoesFileCrc,
        IgnoresRecordCrc,
        IgnoresSlot,
        IgnoresSecondDestination,
        KeepsFrameNumber,
        KeepsOldContent,
        PadsShortFrames,
        RefusesLongHandshake,
        RefusesShortRecordEnd,
        SwapsCrcBytes,
    };

    static QStringList defectNames();
    /// The defect called \a name; null when there is none of that name.
    static std::optional<Defect> defectFromName(const QString &name);

    void setDefect(Defect defect) { m_defects.insert(defect); }

    /// What the receiver answers to \a frame, in order.
    QList<QCanBusFrame> handle(const QCanBusFrame &frame);

    QByteArray file(int type) const { return m_files.value(type); }
    QString serialNumber() const { return m_serialNumber; }
    QByteArray clock() const { return m_clock; }
    int installations() const { return m_installations; }

private:
    bool has(Defect defect) const { return m_defects.contains(defect); }
    QList<QCanBusFrame> handleCommand(quint32 id, const QByteArray &payload);
    QList<QCanBusFrame> handleTransfer(quint32 id, const QByteArray &payload);
    void dataFrame(qsizetype number, const QByteArray &payload);
    QByteArray recordData() const;

    QSet<Defect> m_defects;
    QHash<int, QByteArray> m_files;
    QString m_serialNumber = QStringLiteral("NotReceived");
    int m_serialLength = 0;
    QByteArray m_clock;
    int m_installations = 0;

    int m_fileType = 0;
    int m_openType = -1;
    quint32 m_fileSize = 0;
    QByteArray m_record;
    qsizetype m_recordLength = 0;
    qsizetype m_expectedFrame = 0;
    quint32 m_destination = 26;
};
