#pragma once

#include <QDateTime>
#include <QString>

namespace Shipwright {

class Session;

// Steps of a session that stand alone as commands and together in "provision".

/// These throw when the value on the command line is no good.
QDateTime dateTimeFromText(const QString &text);
void checkFile(const QString &path);

void startConfiguration(Session &session);
void setTime(Session &session, const QString &text);
void setSerial(Session &session, const QString &text);
void sendFile(Session &session, quint32 fileType, const QString &path);
void endConfiguration(Session &session);

} // namespace Shipwright
