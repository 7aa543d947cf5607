#pragma once

#include "options.h"
#include "traffic.h"

#include <QMap>

#include <optional>

namespace Shipwright {

class Console;

inline constexpr Option onlyFramesOption{
    "only", "FILTER",
    "Print only frames with message=TEXT in their name, node=NUMBER as sender or addressee, or "
    "result=success, result=failure or result=CODE; may be given more than once."};
inline constexpr Option absoluteOption{"absolute", nullptr,
                                       "Print dates and times (UTC), not the time since the first "
                                       "frame."};
inline constexpr Option trafficOptions[] = {onlyFramesOption, absoluteOption};

/// Prints what passes on buses, one line per frame, and a summary.
class TrafficPrinter
{
public:
    /// \a interfaces are those known beforehand; others may come.
    TrafficPrinter(Console &console, const CommandLine &line, const QStringList &interfaces = {});

    void print(const QString &interfaceName, const QCanBusFrame &frame);
    /// Throws nothing.
    void summarize() const;

private:
    QString prefix(const QString &interfaceName) const;

    Console &m_console;
    FrameFilter m_filter;
    bool m_isAbsolute;
    std::optional<qint64> m_start;             ///< microseconds
    QMap<QString, TrafficSummary> m_summaries; ///< by interface
};

} // namespace Shipwright
