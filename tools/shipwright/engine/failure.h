#pragma once

#include <QString>

#include <exception>
#include <utility>

namespace Shipwright {

/// Exit statuses of the program, one for each kind of failure.
enum class Exit : int {
    Success = 0,
    Usage = 2,        ///< the command line or a value on it is wrong
    LocalFile = 3,    ///< a file on this computer cannot be read or written
    Interface = 4,    ///< the CAN interface cannot be opened or went away
    SendBlocked = 5,  ///< the interface did not take a frame in time
    NoAnswer = 6,     ///< the receiver did not answer in time
    Refused = 7,      ///< the receiver answered with a failure code
    RecordCrc = 8,    ///< a record's CRC-32 differed in every attempt
    FileCrc = 9,      ///< the CRC-32 of the whole file differs
    BadAnswer = 10,   ///< the receiver's answer is not what the protocol says
    Deviation = 11,   ///< the self-test found a deviation
    Abandoned = 12,   ///< a fault of --fault ended the session
    InUse = 13,       ///< another shipwright on this computer uses the interface
    ForeignTool = 14, ///< another service tool sent frames during the session
    UnitFailed = 15,  ///< a unit of a production line was not provisioned
    Interrupted = 130 ///< ended by Ctrl-C or a termination signal
};

/// Why a command could not do its work. Thrown by the engine, reported by main().
class Failure : public std::exception
{
public:
    Failure(Exit status, QString text, QString advice = {})
        : exit(status),
          message(std::move(text)),
          hint(std::move(advice)),
          m_what(message.toUtf8())
    {
    }

    const char *what() const noexcept override { return m_what.constData(); }

    Exit exit;
    QString message; ///< what was sent, expected and received
    QString hint;    ///< what to try; may be empty

private:
    QByteArray m_what;
};

} // namespace Shipwright
