#pragma once

/// SIGINT and SIGTERM, seen by every wait: in the event loop, for a pipe, for an output that is full.
namespace Shipwright::Interruption {

/// From now on the first signal is kept for the functions below; a second one ends the program.
void watch();
/// Readable once a signal has come, and from then on; -1 before watch().
int descriptor();
bool hasCome();
/// Throws a Failure once a signal has come.
void check();

} // namespace Shipwright::Interruption
