#pragma once

#include <QCanBusFrame>
#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QString>

#include <optional>

namespace Shipwright {

/// A frame in the protocol's own terms.
struct Decoded
{
    struct Field
    {
        QString name;
        QJsonValue value;
        QString text; ///< "file type 2 (generic)"
    };

    QString from;
    QString to;
    QString message; ///< "P6 Transfer Info"
    QList<Field> fields;
    QString fault; ///< what is wrong with the frame; empty when nothing is

    /// The value of the field \a name; undefined when there is none.
    QJsonValue field(const QString &name) const;
    /// "P6 Record End answer: code 186 (failure), CRC-32 differs"
    QString text() const;
};

/// Decodes the frame alone: an answer does not say which command it is for.
Decoded decode(const QCanBusFrame &frame);

/// One line for a frame and what decode() says of it; \a start is the time stamp that counts as 0, in microseconds. Without it, the line
/// begins with the date and time in UTC.
QString decodedLine(const QCanBusFrame &frame, const Decoded &decoded, std::optional<qint64> start);
QJsonObject decodedObject(const QCanBusFrame &frame, const Decoded &decoded);

qint64 microSeconds(const QCanBusFrame::TimeStamp &stamp);

} // namespace Shipwright
