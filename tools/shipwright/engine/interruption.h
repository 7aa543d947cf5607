#pragma once

/// SIGINT and SIGTERM, which end every wait: in the event loop, for a pipe, for a full output.
namespace Shipwright::Interruption {

/// From now on the first signal is kept for the functions below; a second one ends the program.
void watch();
/// Readable from the first signal on; -1 before watch().
int descriptor();
bool hasCome();
/// Throws a Failure once a signal has come.
void check();

} // namespace Shipwright::Interruption
