#pragma once

#include <atomic>
#include <cstdint>

/// Faults in the storage below /media/service/korvane, for a process that links this library
/// before Qt, and for the programs that it starts. The library stands between the process and
/// the C library's file functions, counts those that touch the tree, and strikes at the one
/// that a test chooses.
namespace FaultFs {

enum class Action : int {
    None,
    Error, ///< the operation fails with the chosen errno
    Short, ///< a read or write handles half of its bytes, at least one; others go unharmed
    Kill,  ///< a write is done by half, then the whole process group is killed
};

/// Shared by all processes that were forked after share(), and the programs that they run.
struct Control
{
    std::atomic<uint32_t> operations; ///< seen since the test last set it to 0
    std::atomic<uint32_t> struck;     ///< times that the action was taken
    uint32_t at;                      ///< number of the operation to strike, from 1; 0 for none
    bool lasting;                     ///< strikes every later operation too
    Action action;
    int error; ///< errno for Action::Error
    /// With watch set: the first path that a process tried to change although it neither lies
    /// below the tree nor is "Unknown" in the working directory. Else empty.
    bool watch;
    char strayed[256];
};

Control &control();

/// Makes the control block common to this process and all that it starts: \a file is created for
/// it, and the environment is set for programs.
void share(const char *file);

} // namespace FaultFs
