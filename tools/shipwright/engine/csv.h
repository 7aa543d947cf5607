#pragma once

#include <QByteArray>
#include <QList>
#include <QStringList>

// Tables of comma-separated values as RFC 4180 has them, in UTF-8.
namespace Shipwright {

struct CsvRow
{
    int line; ///< where it starts, from 1
    QStringList cells;
};

/// The rows of \a bytes, without empty lines; the first one is the header, and all have as many cells
/// as it. Throws a Failure that names \a name and the line.
QList<CsvRow> parseCsv(const QByteArray &bytes, const QString &name);

} // namespace Shipwright
