#pragma once

#include <QDateTime>
#include <QString>

namespace Shipwright {

class Session;

// Steps of a session that stand alone as commands and together in "provision". The values are
// checked first, so that a session does not break off half done for a mistyped one.

QDateTime dateTimeFromText(const QString &text);
void checkFile(const QString &path);

void setTime(Session &session, const QString &text);
void setSerial(Session &session, const QString &text);
void sendFile(Session &session, quint32 fileType, const QString &path);

} // namespace Shipwright
