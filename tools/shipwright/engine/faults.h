#pragma once

#include <QCanBusFrame>
#include <QStringList>

#include <optional>
#include <vector>

namespace Shipwright {

/// What to do to a frame that is sent.
struct Fault
{
    enum class Action { Drop, Repeat, Swap, Corrupt, Truncate, Delay, Abandon, Kill };

    Action action;
    qint64 delay = 0;  ///< milliseconds, for Delay
    QString frames;    ///< kind of frame that is counted
    quint64 first = 1; ///< first one affected, counted from 1
    quint64 last = 1;  ///< last one affected
};

/// The faults to inject, and the count of the frames so far.
class FaultPlan
{
public:
    /// Adds a fault written ACTION[=MS]@FRAMES[:FIRST[-LAST]]; throws a Failure if it is not one.
    void add(const QString &text);
    /// The fault that hits \a frame, the next one to go out.
    std::optional<Fault> next(const QCanBusFrame &frame);

    static QStringList actionNames();
    static QStringList frameNames();

private:
    struct Entry
    {
        Fault fault;
        quint64 count = 0;
    };
    std::vector<Entry> m_entries;
};

} // namespace Shipwright
