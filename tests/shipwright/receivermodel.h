#pragma once

#include <QCanBusFrame>
#include <QHash>
#include <QList>
#include <QString>

#include <functional>

/// A receiver in memory, written from the protocol. It shares no code with the engine. Its state is
/// public, so that a deviation can spoil it.
class ReceiverModel
{
public:
    /// In order; the time stamp of an answer is its delay after the others.
    using Answers = QList<QCanBusFrame>;
    /// Replaces handle(), which it may call.
    using Deviation = std::function<Answers(ReceiverModel &, const QCanBusFrame &)>;

    /// The answers to \a frame.
    Answers receive(const QCanBusFrame &frame)
    {
        return deviation ? deviation(*this, frame) : handle(frame);
    }
    /// The same, as the protocol defines them.
    Answers handle(const QCanBusFrame &frame);

    Deviation deviation;

    QByteArray file(int type) const { return files.value(type); }

    // ---- What the receiver stores
    QHash<int, QByteArray> files; ///< by file type; 4 for every unknown one
    QString serialNumber = QStringLiteral("NotReceived");
    QByteArray clock; ///< payload of the last Set Date Time that was accepted
    int installations = 0;

    // ---- What it remembers between frames
    int serialLength = 0;
    int fileType = 0;
    quint32 fileSize = 0;
    int place = -1; ///< key in files of the file being received
    bool isOpen = false;
    QByteArray record;
    qsizetype recordLength = 0;
    qsizetype expectedFrame = 0;

private:
    Answers handleCommand(quint32 id, const QByteArray &payload);
    Answers handleTransfer(quint32 id, const QByteArray &payload);
    void dataFrame(qsizetype number, const QByteArray &payload);
};
