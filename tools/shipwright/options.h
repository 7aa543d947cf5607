#pragma once

#include "faults.h"
#include "peer.h"

#include <QHash>
#include <QStringList>

#include <optional>

namespace Shipwright {

/// An option as the command line writes it and the help shows it.
struct Option
{
    const char *name;
    const char *value; ///< what it takes; null for a switch
    const char *help;
    const char *fallback = ""; ///< its value when it is not given
};

/// A command's arguments and options. The calls that read a value throw a Failure when it is not
/// one that the option takes.
class CommandLine
{
public:
    /// \a given holds the values of the options that were given, by name.
    CommandLine(const QStringList &positional, const QHash<QString, QStringList> &given)
        : arguments(positional),
          m_given(given)
    {
    }

    const QStringList arguments;

    bool isSet(const Option &option) const;
    QString text(const Option &option) const;
    QStringList texts(const Option &option) const;
    qint64 number(const Option &option, qint64 least, qint64 most) const;

private:
    const QHash<QString, QStringList> m_given;
};

// Options that several commands take, in the groups that they come in.
inline constexpr Option jsonOption{"json", nullptr, "Print one JSON object per event."};

inline constexpr Option pluginOption{"plugin", "NAME", "Qt CAN bus plugin (default: socketcan).",
                                     "socketcan"};
inline constexpr Option interfaceOption{"interface", "NAME", "CAN interface (default: can0).",
                                        "can0"};
inline constexpr Option bitRateOption{
    "bitrate", "RATE",
    "Bit rate of the bus in bit/s: the measure of the throughput shown, and set on the adapter "
    "where the plugin can; a SocketCAN interface that is up keeps its own."};
inline constexpr Option logOption{
    "log", "FILE", "Write all frames to a log that canplayer and \"shipwright decode\" read."};
inline constexpr Option busOptions[] = {pluginOption, interfaceOption, bitRateOption, logOption};

inline constexpr Option timeoutOption{
    "timeout", "MS",
    "Time limit for an answer in milliseconds (default: the receiver's own limits, 1000 until it "
    "has told them)."};
inline constexpr Option faultOption{
    "fault", "FAULT",
    "Disturb frames on purpose, ACTION[=MS]@FRAMES[:FIRST[-LAST]]; may be given more than once. "
    "Actions: drop, repeat, swap, corrupt, truncate, delay, abandon, kill. Frames: any, command, "
    "transfer-info, init-transfer, record-start, data, record-end, transfer-complete."};
inline constexpr Option sendOptions[] = {timeoutOption, faultOption};

inline constexpr Option destinationOption{"destination", "NODE",
                                          "Node that is addressed, 26 or 14 (default: 26).", "26"};
inline constexpr Option receiverOptions[] = {destinationOption};

inline constexpr Option slotOption{"slot", "SLOT", "Slot of the commands, 0 to 3 (default: 0).",
                                   "0"};
inline constexpr Option slotOptions[] = {slotOption};

inline constexpr Option retriesOption{"retries", "COUNT",
                                      "Times that a record is sent again (default: 5).", "5"};
inline constexpr Option forceOption{"force", nullptr,
                                    "Send a configuration file even if it is empty."};
inline constexpr Option transferOptions[] = {retriesOption, forceOption};

/// What commands on the bus are told about it.
struct BusSettings
{
    explicit BusSettings(const CommandLine &line);

    QString plugin;
    QString interfaceName;
    std::optional<quint32> bitRate;
    QString logFile; ///< empty: no log
};

/// What commands that send are told, beside that.
struct SendSettings
{
    /// Options that the command does not take have their default.
    explicit SendSettings(const CommandLine &line);

    BusSettings bus;
    PeerSettings peer;
    FaultPlan faults;
};

} // namespace Shipwright
