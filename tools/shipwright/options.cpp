#include "options.h"

#include "failure.h"

#include "wire.h"

#include <limits>

namespace Shipwright {

using namespace Qt::StringLiterals;

bool CommandLine::isSet(const Option &option) const
{
    const QString name = QString::fromLatin1(option.name);
    return m_given.contains(name) || m_environment.contains(name);
}

QString CommandLine::text(const Option &option) const
{
    const QStringList values = texts(option);
    return values.isEmpty() ? QString::fromLatin1(option.fallback) : values.constLast();
}

QStringList CommandLine::texts(const Option &option) const
{
    const QString name = QString::fromLatin1(option.name);
    return m_given.value(name, m_environment.value(name));
}

QString CommandLine::sourceOf(const Option &option) const
{
    const QString name = QString::fromLatin1(option.name);
    const bool isVariable = !m_given.contains(name) && m_environment.contains(name);
    return isVariable ? QString::fromLatin1(option.variable) : u"--"_s + name;
}

qint64 CommandLine::number(const Option &option, qint64 least, qint64 most) const
{
    bool ok = false;
    const QString given = text(option);
    const qint64 value = given.toLongLong(&ok);
    if (!ok || value < least || value > most) {
        throw Failure(Exit::Usage,
                      u"%1 takes a number from %2 to %3, not \"%4\"."_s.arg(sourceOf(option))
                          .arg(least)
                          .arg(most)
                          .arg(given));
    }
    return value;
}

BusSettings::BusSettings(const CommandLine &line)
    : plugin(line.text(pluginOption)),
      interfaceName(line.text(interfaceOption)),
      logFile(line.text(logOption))
{
    if (line.isSet(bitRateOption))
        bitRate = quint32(line.number(bitRateOption, 10'000, 1'000'000));
}

SendSettings::SendSettings(const CommandLine &line)
    : bus(line)
{
    peer.slot = quint32(line.number(slotOption, 0, Wire::P3::slot.max()));
    peer.destination = line.text(destinationOption).toUInt();
    if (peer.destination != Wire::nodeDockhand && peer.destination != Wire::nodeDockhandAlt) {
        throw Failure(Exit::Usage,
                      u"%1 takes %2 or %3, not \"%4\"."_s.arg(line.sourceOf(destinationOption))
                          .arg(Wire::nodeDockhand)
                          .arg(Wire::nodeDockhandAlt)
                          .arg(line.text(destinationOption)));
    }
    if (line.isSet(timeoutOption))
        peer.timeout = line.number(timeoutOption, 1, std::numeric_limits<int>::max());
    peer.retries = int(line.number(retriesOption, 0, 1000));
    for (const QString &fault : line.texts(faultOption))
        faults.add(fault);
}

} // namespace Shipwright
