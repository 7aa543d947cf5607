#include "ledger.h"

#include "failure.h"
#include "files.h"
#include "text.h"

#include <QFileInfo>
#include <QJsonDocument>

#include <fcntl.h>
#include <unistd.h>

namespace Shipwright {

using namespace Qt::StringLiterals;

Ledger::Ledger(const QString &path)
    : m_path(path),
      m_lock(path + u".lock"_s)
{
    m_lock.setStaleLockTime(0);
    if (!m_lock.tryLock(0)) {
        throw Failure(
            Exit::InUse,
            u"Another shipwright works with %1, or %1.lock cannot be written; nothing was "
            "sent."_s.arg(printable(m_path)));
    }
    if (!QFileInfo::exists(m_path))
        return;
    const QByteArrayList lines = Input(m_path).readAll().split('\n');
    for (qsizetype i = 0; i < lines.size(); ++i) {
        if (lines.at(i).trimmed().isEmpty())
            continue;
        QJsonObject unit = QJsonDocument::fromJson(lines.at(i)).object();
        const QString serial = unit.value(u"serial"_s).toString();
        if (serial.isEmpty()) {
            throw Failure(
                Exit::Usage,
                u"%1, line %2: this is not a unit's state."_s.arg(printable(m_path)).arg(i + 1));
        }
        if (unit.value(u"state"_s) == u"started"_s) {
            unit.insert(u"state"_s, u"failed"_s);
            unit.insert(u"message"_s,
                        u"The line stopped meanwhile; what the unit holds is not known."_s);
        }
        m_units.insert(serial, unit);
    }
}

void Ledger::set(const QString &serial, const QString &state, const QString &interfaceName,
                 const QString &message)
{
    m_units.insert(serial,
                   {{u"serial"_s, serial},
                    {u"state"_s, state},
                    {u"interface"_s, interfaceName},
                    {u"message"_s, message}});
    QByteArray content;
    for (const QJsonObject &unit : std::as_const(m_units))
        content += QJsonDocument(unit).toJson(QJsonDocument::Compact) + '\n';
    WholeOutput(u"The state"_s, m_path, {}).write(content);
    // The content is on the disk when it gets its name; the name has to follow.
    const int folder = open(QFile::encodeName(QFileInfo(m_path).absolutePath()).constData(),
                            O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    fsync(folder);
    close(folder);
}

} // namespace Shipwright
