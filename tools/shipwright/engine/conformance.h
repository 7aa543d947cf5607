#pragma once

#include <QString>

#include <functional>

namespace Shipwright {

class Link;

struct ConformanceResult
{
    enum class Outcome { Passed, Failed, Skipped };

    QString name;
    Outcome outcome = Outcome::Passed;
    QString deviation; ///< what the receiver did and what was due
};

struct ConformanceSettings
{
    bool destructive = false;        ///< also run what changes clock, serial number, configuration
    qint64 timeout = 1000;           ///< limit for an answer, in milliseconds
    qint64 completeTimeout = 60'000; ///< limit for the answer to Transfer Complete
};

using ConformanceReport = std::function<void(const ConformanceResult &)>;

/// Holds a receiver to the protocol, on good paths and bad ones; returns the number of checks that
/// failed. Silence is proven without waiting: the receiver handles frames in order, so that the
/// answer to a harmless question sent afterwards must be the next one to come.
int checkConformance(Link &link, const ConformanceSettings &settings,
                     const ConformanceReport &report);

} // namespace Shipwright
