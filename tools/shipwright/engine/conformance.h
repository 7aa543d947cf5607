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
        Skipped, ///< destructive, and not requested
        NotRun,  ///< the checks ended before it
    };

    QString name;
    Outcome outcome = Outcome::NotRun;
    QString due;             ///< after a failure: what the receiver had to send
    QString came;            ///< after a failure: what it did send
    QList<Exchanged> frames; ///< sent and received, in order
    qsizetype cause = -1;    ///< after a failure: index in frames of the last one sent before it
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

/// Checks a receiver against the protocol, with correct and with wrong messages.
class Conformance
{
public:
    Conformance(Link &link, const ConformanceSettings &settings);

    /// Whether anything answers at all, right or wrong. Call it before run().
    bool findReceiver() { return m_probe.findReceiver(); }
    /// Runs the checks and passes each result to \a report. If the receiver stops answering, or
    /// this throws a Failure, the remaining checks stay in results() as NotRun.
    void run(const std::function<void(const ConformanceResult &)> &report);

    const QList<ConformanceResult> &results() const { return m_results; }
    qsizetype count(ConformanceResult::Outcome outcome) const;
    /// What the checks have overwritten on the receiver so far, in words.
    QStringList changes() const { return m_probe.changes(); }

private:
    /// False if the receiver stopped answering.
    bool run(void (*check)(Probe &), ConformanceResult &result);

    ConformanceSettings m_settings;
    Link &m_link;
    Probe m_probe;
    QList<ConformanceResult> m_results;
};

} // namespace Shipwright
