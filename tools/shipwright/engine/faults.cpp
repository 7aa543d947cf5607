#include "faults.h"

#include "failure.h"

#include "wire.h"

#include <QRegularExpression>

#include <algorithm>
#include <limits>
#include <utility>

namespace Shipwright {

using namespace Qt::StringLiterals;

namespace {

constexpr std::pair<QLatin1StringView, Fault::Action> actions[] = {
    {QLatin1StringView("drop"), Fault::Action::Drop},
    {QLatin1StringView("repeat"), Fault::Action::Repeat},
    {QLatin1StringView("swap"), Fault::Action::Swap},
    {QLatin1StringView("corrupt"), Fault::Action::Corrupt},
    {QLatin1StringView("truncate"), Fault::Action::Truncate},
    {QLatin1StringView("delay"), Fault::Action::Delay},
    {QLatin1StringView("abandon"), Fault::Action::Abandon},
    {QLatin1StringView("kill"), Fault::Action::Kill},
};

constexpr std::pair<QLatin1StringView, quint32> transferFrames[] = {
    {QLatin1StringView("transfer-info"), Wire::TransferInfo::type},
    {QLatin1StringView("init-transfer"), Wire::InitiateTransfer::type},
    {QLatin1StringView("record-start"), Wire::RecordStart::type},
    {QLatin1StringView("data"), Wire::DataFrame::type},
    {QLatin1StringView("record-end"), Wire::RecordEnd::type},
    {QLatin1StringView("transfer-complete"), Wire::TransferComplete::type},
};

constexpr QLatin1StringView anyFrame("any");
constexpr QLatin1StringView commandFrame("command");

bool isOfKind(const QCanBusFrame &frame, const QString &kind)
{
    if (kind == anyFrame)
        return true;
    const quint32 protocol = Wire::protocolType.of(frame.frameId());
    if (kind == commandFrame)
        return protocol == Wire::protocolP3;
    for (const auto &[name, type] : transferFrames) {
        if (kind == name)
            return protocol == Wire::protocolP6 && Wire::P6::type.of(frame.frameId()) == type;
    }
    return false;
}

} // namespace

QStringList FaultPlan::actionNames()
{
    QStringList names;
    for (const auto &action : actions)
        names += action.first;
    return names;
}

QStringList FaultPlan::frameNames()
{
    QStringList names{anyFrame, commandFrame};
    for (const auto &frame : transferFrames)
        names += frame.first;
    return names;
}

void FaultPlan::add(const QString &text)
{
    static const QRegularExpression form(
        uR"(^([a-z]+)(?:=(\d{1,9}))?@([a-z-]+?)(?::(\d{1,9})(?:-(\d{1,9})?)?)?$)"_s);
    const auto match = form.match(text);
    const auto refuse = [&text](const QString &reason) {
        throw Failure(Exit::Usage, u"\"%1\" is not a fault: %2."_s.arg(text, reason),
                      u"Write ACTION[=MS]@FRAMES[:FIRST[-LAST]], for example drop@data:5."_s);
    };
    if (!match.hasMatch())
        refuse(u"it does not have the form ACTION[=MS]@FRAMES[:FIRST[-LAST]]"_s);

    const QString action = match.captured(1);
    const auto *const known = std::find_if(std::begin(actions), std::end(actions),
                                           [&action](const auto &a) { return action == a.first; });
    if (known == std::end(actions))
        refuse(u"the action must be one of %1"_s.arg(actionNames().join(u", "_s)));
    if (match.hasCaptured(2) != (known->second == Fault::Action::Delay))
        refuse(u"only delay takes a time in milliseconds, and it needs one"_s);
    if (!frameNames().contains(match.captured(3)))
        refuse(u"the frames must be one of %1"_s.arg(frameNames().join(u", "_s)));

    Fault fault;
    fault.action = known->second;
    fault.delay = match.captured(2).toLongLong();
    fault.frames = match.captured(3);
    if (match.hasCaptured(4)) {
        fault.first = match.captured(4).toULongLong();
        fault.last = fault.first;
        if (match.hasCaptured(5))
            fault.last = match.captured(5).toULongLong();
        else if (text.endsWith(u'-'))
            fault.last = std::numeric_limits<quint64>::max();
    }
    if (fault.first < 1 || fault.last < fault.first)
        refuse(u"frames count from 1, and LAST must not be before FIRST"_s);
    m_entries.push_back({fault, 0});
}

std::optional<Fault> FaultPlan::next(const QCanBusFrame &frame)
{
    std::optional<Fault> hit;
    for (Entry &entry : m_entries) {
        if (!isOfKind(frame, entry.fault.frames))
            continue;
        ++entry.count;
        if (!hit && entry.count >= entry.fault.first && entry.count <= entry.fault.last)
            hit = entry.fault;
    }
    return hit;
}

} // namespace Shipwright
