#pragma once

#include "faults.h"
#include "peer.h"

#include <QHash>
#include <QStringList>

#include <optional>
#include <utility>

namespace Shipwright {

/// An option as the command line writes it and the help shows it.
struct Option
{
    const char *name;
    const char *value; ///< the value's name; null for a switch
    const char *help;
    const char *fallback = "";      ///< its value when it is not given
    const char *variable = nullptr; ///< environment variable whose value goes before the fallback
};

/// A command's arguments and options. The calls that read a value throw a Failure if the option
/// does not take it.
class CommandLine
{
public:
    /// \a given has the options on the command line, \a environment the values of variables, both by
    /// the option's name.
    CommandLine(QStringList positional, QHash<QString, QStringList> given,
                QHash<QString, QStringList> environment)
        : arguments(std::move(positional)),
          m_given(std::move(given)),
          m_environment(std::move(environment))
    {
    }

    const QStringList arguments;

    /// Whether the command line or the environment has a value.
    bool isSet(const Option &option) const;
    QString text(const Option &option) const;
    QStringList texts(const Option &option) const;
    qint64 number(const Option &option, qint64 least, qint64 most) const;

    /// Where the value comes from, for messages: "--slot" or the variable's name.
    QString sourceOf(const Option &option) const;

private:
    const QHash<QString, QStringList> m_given;
    const QHash<QString, QStringList> m_environment;
};

// Options that several commands share, in groups.
inline constexpr Option jsonOption{"json", nullptr, "Print one JSON object per event."};

inline constexpr Option pluginOption{"plugin", "NAME", "Qt CAN bus plugin (default: socketcan).",
                                     "socketcan", "SHIPWRIGHT_PLUGIN"};
inline constexpr Option interfaceOption{"interface", "NAME", "CAN interface (default: can0).",
                                        "can0", "SHIPWRIGHT_INTERFACE"};
inline constexpr Option bitRateOption{
    "bitrate", "RATE",
    "Bit rate of the bus in bit/s, to show the bus load. The adapter is set to it if the plugin "
    "can do that; a SocketCAN interface that is up keeps its bit rate.",
    "", "SHIPWRIGHT_BITRATE"};
inline constexpr Option logOption{"log", "FILE",
                                  "Write all frames to FILE, in candump's log format."};
inline constexpr Option reportOption{"report", "FILE", "Append one JSON object per unit to FILE."};
inline constexpr Option busOptions[] = {pluginOption, interfaceOption, bitRateOption, logOption};

inline constexpr Option timeoutOption{
    "timeout", "MS",
    "Time limit for an answer in milliseconds (default: the receiver's own limits; 1000 until "
    "they are known).",
    "", "SHIPWRIGHT_TIMEOUT"};
inline constexpr Option faultOption{
    "fault", "FAULT",
    "Inject a fault: ACTION[=MS]@FRAMES[:FIRST[-LAST]]; may be given more than once. "
    "Actions: drop, repeat, swap, corrupt, truncate, delay, abandon, kill. Frames: any, command, "
    "transfer-info, init-transfer, record-start, data, record-end, transfer-complete."};
inline constexpr Option sendOptions[] = {timeoutOption, faultOption};

inline constexpr Option destinationOption{"destination", "NODE",
                                          "Node to address, 26 or 14 (default: 26).", "26",
                                          "SHIPWRIGHT_DESTINATION"};
inline constexpr Option receiverOptions[] = {destinationOption};

inline constexpr Option slotOption{"slot", "SLOT", "Slot of the commands, 0 to 3 (default: 0).",
                                   "0", "SHIPWRIGHT_SLOT"};
inline constexpr Option slotOptions[] = {slotOption};

inline constexpr Option retriesOption{
    "retries", "COUNT", "How often to resend a record (default: 5).", "5", "SHIPWRIGHT_RETRIES"};
inline constexpr Option forceOption{"force", nullptr,
                                    "Send a configuration file even if it is empty."};
inline constexpr Option transferOptions[] = {retriesOption, forceOption};

/// The options of every command that uses the bus.
struct BusSettings
{
    explicit BusSettings(const CommandLine &line);

    QString plugin;
    QString interfaceName;
    std::optional<quint32> bitRate;
    QString logFile; ///< empty: no log
};

/// The options of every command that sends.
struct SendSettings
{
    /// Options that the command does not take have their default.
    explicit SendSettings(const CommandLine &line);

    BusSettings bus;
    PeerSettings peer;
    FaultPlan faults;
};

} // namespace Shipwright
