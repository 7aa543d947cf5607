#pragma once

#include <atomic>
#include <cstdint>

/// Faults in the storage below /media/service/korvane, for a process that links this library
/// before Qt, and for the programs that it starts. The library replaces the C library's file
/// functions, counts the calls that touch the tree, and makes the one fail that a test chooses.
namespace FaultFs {

enum class Action : int {
    None,
    Error, ///< the operation fails with the chosen errno
    Short, ///< a read or write handles half of its bytes, at least one; others are not changed
    Kill,  ///< half of a write is done, then the whole process group is killed
};

/// Shared by all processes that were forked after share(), and the programs that they run.
struct Control
{
    std::atomic<uint32_t> operations; ///< seen since the test last set it to 0
    std::atomic<uint32_t> struck;     ///< how often the action was taken
    uint32_t at;                      ///< number of the operation that fails, from 1; 0 for none
    bool lasting;                     ///< every later operation fails too
    Action action;
    int error; ///< errno for Action::Error
    /// With watch set: the first path that a process tried to change outside of the tree, except
    /// "Unknown" in the working directory. Else empty.
    bool watch;
    char strayed[256];
};

Control &control();

/// Shares the control block with all processes that this one starts: creates \a file for it, and
/// sets the environment for programs.
void share(const char *file);

} // namespace FaultFs
