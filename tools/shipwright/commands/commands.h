#pragma once

#include "failure.h"
#include "options.h"

#include <array>
#include <span>

namespace Shipwright {

class Session;

/// A command: what the help shows of it, what it takes, what it does. Every command takes
/// jsonOption too; a command line with anything else is refused.
struct Command
{
    const char *name;
    const char *arguments; ///< as the help shows them
    const char *summary;
    qsizetype leastArguments = 0;
    qsizetype mostArguments = 0;
    std::array<std::span<const Option>, 8> options; ///< groups, as many as are needed
    Exit (*run)(Session &session, const CommandLine &line);
};

extern const Command connectCommand;
extern const Command infoCommand;
extern const Command setTimeCommand;
extern const Command setSerialCommand;
extern const Command sendCommand;
extern const Command endCommand;
extern const Command provisionCommand;
extern const Command lineCommand;
extern const Command watchCommand;
extern const Command decodeCommand;
extern const Command selftestCommand;

std::span<const Command *const> allCommands();

} // namespace Shipwright
