#pragma once

#include "failure.h"

#include <QStringList>

#include <span>

class QCommandLineParser;

namespace Shipwright {

class Session;

struct Command
{
    const char *name;
    const char *arguments = ""; ///< as the help shows them
    const char *summary;
    qsizetype leastArguments = 0;
    qsizetype mostArguments = 0;
    Exit (*run)(Session &session, const QStringList &arguments);
    void (*addOptions)(QCommandLineParser &parser) = nullptr;
};

extern const Command connectCommand;
extern const Command infoCommand;
extern const Command setTimeCommand;
extern const Command setSerialCommand;
extern const Command sendCommand;
extern const Command endCommand;
extern const Command provisionCommand;
extern const Command watchCommand;
extern const Command decodeCommand;
extern const Command selftestCommand;

std::span<const Command *const> allCommands();

} // namespace Shipwright
