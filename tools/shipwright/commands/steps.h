#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>

#include <optional>

namespace Shipwright {

class Session;

// Steps of a session that stand alone as commands and together in "provision". The values that they
// take are read and checked before the bus is opened; what is no good makes the readers throw.

/// What the receiver's clock is to be set to; nothing: the time when it is set.
using TimeSetting = std::optional<QDateTime>;
TimeSetting readTime(const QString &text);

struct FileToSend
{
    quint32 type;
    QString name; ///< as it was given
    QByteArray content;
};
/// Reads the file; \a force lets an empty configuration pass.
FileToSend readFile(Session &session, quint32 type, const QString &path, bool force);

void startConfiguration(Session &session);
void setTime(Session &session, const TimeSetting &setting);
void setSerial(Session &session, const QString &text);
void sendFile(Session &session, const FileToSend &file, std::optional<quint32> bitRate);
void endConfiguration(Session &session);

} // namespace Shipwright
