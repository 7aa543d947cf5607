#pragma once

#include <QCanBusFrame>

#include <optional>

/// The log format that candump -L writes and canplayer reads:
/// (1436509052.249713) can0 0F1A02C0#A55A
namespace Shipwright::Candump {

struct Entry
{
    QString interfaceName;
    QCanBusFrame frame; ///< with its time stamp
};

QByteArray format(const QString &interfaceName, const QCanBusFrame &frame);
/// Nothing when \a line is not a classic CAN frame in this format.
std::optional<Entry> parse(const QByteArray &line);

} // namespace Shipwright::Candump
