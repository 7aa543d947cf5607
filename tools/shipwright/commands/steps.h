#pragma once

#include "options.h"
#include "peer.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>

#include <optional>
#include <span>

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
    TransferProgress progress = {}; ///< as far as it has got
};
/// Reads the file; \a force lets an empty configuration pass.
FileToSend readFile(Session &session, quint32 type, const QString &path, bool force);

void startConfiguration(Session &session);
void setTime(Session &session, const TimeSetting &setting);
void setSerial(Session &session, const QString &text);
void sendFile(Session &session, FileToSend &file, std::optional<quint32> bitRate);
void endConfiguration(Session &session);

/// The steps of "provision" as options, and those of them that name files.
std::span<const Option> stepOptions();
std::span<const Option> fileOptions();
/// Throws what "provision" throws before the first frame.
void checkProvisioning(Session &session, const CommandLine &line);

} // namespace Shipwright
