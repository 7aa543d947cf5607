#pragma once

#include "faults.h"
#include "peer.h"

#include <QCommandLineParser>
#include <QString>

#include <optional>

namespace Shipwright {

/// What the options common to all commands ask for.
struct Options
{
    QString plugin;
    QString interfaceName;
    std::optional<quint32> bitRate;
    PeerSettings peer;
    QString logFile;
    bool json = false;
    FaultPlan faults;
};

void addCommonOptions(QCommandLineParser &parser);
/// Throws a Failure when a value is not one that the option takes.
Options readCommonOptions(const QCommandLineParser &parser);

} // namespace Shipwright
