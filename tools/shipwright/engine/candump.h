#pragma once

#include <QCanBusFrame>

#include <optional>

/// candump's two formats: the log format of -L and -l, which canplayer reads too,
///     (1436509052.249713) can0 0F1A02C0#A55A
/// and the printed format, with any of its time stamps or none:
///     can0  0F1A02C0   [2]  A5 5A
namespace Shipwright::Candump {

struct Entry
{
    QString interfaceName;
    QCanBusFrame frame; ///< with its time stamp
};

/// A line in the log format, which has no blanks in names: those of \a interfaceName become "_".
QByteArray format(const QString &interfaceName, const QCanBusFrame &frame);
/// Nothing if \a line is not a classic CAN frame in one of these formats.
std::optional<Entry> parse(const QByteArray &line);

} // namespace Shipwright::Candump
