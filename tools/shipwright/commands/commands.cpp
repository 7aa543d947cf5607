#include "commands.h"

namespace Shipwright {

std::span<const Command *const> allCommands()
{
    static const Command *const commands[] = {
        &connectCommand, &infoCommand,   &setTimeCommand,   &setSerialCommand,
        &sendCommand,    &endCommand,    &provisionCommand, &lineCommand,
        &watchCommand,   &decodeCommand, &selftestCommand,
    };
    return commands;
}

} // namespace Shipwright
