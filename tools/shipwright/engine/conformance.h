#pragma once

#include "probe.h"

#include <functional>

namespace Shipwright {

struct ConformanceCheck
{
    QString name;
    bool isDestructive = false; ///< changes more on the receiver than its generic file
};

struct ConformanceResult
{
    enum class Outcome {
        Passed,
        Failed,
        Skipped, ///< destructive, which was not asked for
        NotRun,  ///< the checks ended before it
    };

    QString name;
    Outcome outcome = Outcome::NotRun;
    QString due;             ///< after a failure: what the receiver had to send
    QString came;            ///< after a failure: what it did send
    QList<Exchanged> frames; ///< sent and received, in order
    qsizetype cause = -1;    ///< after a failure: index in frames of what was sent before it
    qint64 milliseconds = 0; ///< how long the check took
};

struct ConformanceSettings
{
    bool destructive = false; ///< also run the destructive checks
    QString only;             ///< run the checks whose names contain this, in any case
    ProbeLimits limits;
};

/// The checks that \a settings choose, in the order in which they run.
QList<ConformanceCheck> conformanceChecks(const ConformanceSettings &settings);

/// Holds a receiver to the protocol, on good paths and bad ones.
class Conformance
{
public:
    Conformance(Link &link, const ConformanceSettings &settings);

    /// Whether anything answers at all, in whatever way. To be called before run().
    bool findReceiver() { return m_probe.findReceiver(); }
    /// Runs the checks and hands the result of each to \a report. The others stay in results() as
    /// not run: when the receiver does not answer any more, and when this throws a Failure.
    void run(const std::function<void(const ConformanceResult &)> &report);

    const QList<ConformanceResult> &results() const { return m_results; }
    qsizetype count(ConformanceResult::Outcome outcome) const;
    /// What the receiver has lost to the checks so far, in words.
    QStringList changes() const { return m_probe.changes(); }

private:
    /// False when the receiver does not answer any more.
    bool run(void (*check)(Probe &), ConformanceResult &result);

    ConformanceSettings m_settings;
    Link &m_link;
    Probe m_probe;
    QList<ConformanceResult> m_results;
};

} // namespace Shipwright
