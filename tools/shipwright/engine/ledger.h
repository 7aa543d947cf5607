#pragma once

#include <QJsonObject>
#include <QLockFile>
#include <QMap>
#include <QString>

namespace Shipwright {

/// Which units a production line has given away: a JSON object a line, in a file that a crash or a
/// power cut leaves complete and that is one process's own. Calls throw a Failure when they cannot do
/// their work.
class Ledger
{
public:
    /// Reads the file at \a path, if there is one. What was started there has failed meanwhile.
    explicit Ledger(const QString &path);

    /// By serial number: "state" ("started", "done" or "failed"), "interface", "message".
    const QMap<QString, QJsonObject> &units() const { return m_units; }
    /// On the disk when the call returns.
    void set(const QString &serial, const QString &state, const QString &interfaceName,
             const QString &message = {});

private:
    QString m_path;
    QLockFile m_lock;
    QMap<QString, QJsonObject> m_units;
};

} // namespace Shipwright
