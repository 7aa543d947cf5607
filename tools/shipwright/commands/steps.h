#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>

#include <optional>

namespace Shipwright {

class Session;

// The steps of a session. Each is a command; "provision" runs them all. The readers run before the
// bus is opened, and throw a Failure for a value that cannot be sent.

/// The time for the receiver's clock; nothing: the time at which it is set.
using TimeSetting = std::optional<QDateTime>;
TimeSetting readTime(const QString &text);

struct FileToSend
{
    quint32 type;
    QString name; ///< as given on the command line
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
