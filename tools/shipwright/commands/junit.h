#pragma once

#include "conformance.h"
#include "failure.h"

#include <QByteArray>
#include <QDateTime>

#include <optional>

namespace Shipwright {

/// What happened around a deviation, in words.
struct DeviationText
{
    explicit DeviationText(const ConformanceResult &result);

    QString sent; ///< the frame before it
    QString due;
    QString came;
};

/// The report that continuous integration reads: a test suite with a test case for each check, and one
/// more for \a failure, which ended the session.
QByteArray junitReport(const Conformance &conformance, const std::optional<Failure> &failure,
                       const QString &interfaceName, const QDateTime &start);

} // namespace Shipwright
