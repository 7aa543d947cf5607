#pragma once

#include <QCanBusFrame>

#include <optional>

/// What candump writes: the log format of -L and -l, which canplayer reads too,
///     (1436509052.249713) can0 0F1A02C0#A55A
/// and what it prints without it, with any of its time stamps or none:
///     can0  0F1A02C0   [2]  A5 5A
namespace Shipwright::Candump {

struct Entry
{
    QString interfaceName;
    QCanBusFrame frame; ///< with its time stamp
};

/// In the log format. Blanks in \a interfaceName, which it cannot have, become underscores.
QByteArray format(const QString &interfaceName, const QCanBusFrame &frame);
/// Nothing when \a line is not a classic CAN frame in one of these formats.
std::optional<Entry> parse(const QByteArray &line);

} // namespace Shipwright::Candump
