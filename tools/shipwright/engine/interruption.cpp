#include "interruption.h"

#include "failure.h"

#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace Shipwright::Interruption {

using namespace Qt::StringLiterals;

namespace {

int signalPipe[2] = {-1, -1};
volatile std::sig_atomic_t signalled = 0;

void onSignal(int)
{
    signalled = 1;
    const char byte = 0;
    [[maybe_unused]] const ssize_t written = write(signalPipe[1], &byte, 1);
}

} // namespace

void watch()
{
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, signalPipe) != 0)
        return;
    struct sigaction action = {};
    action.sa_handler = onSignal;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

int descriptor()
{
    return signalPipe[0];
}

bool hasCome()
{
    return signalled != 0;
}

void check()
{
    if (hasCome())
        throw Failure(Exit::Interrupted, u"Interrupted."_s);
}

} // namespace Shipwright::Interruption
