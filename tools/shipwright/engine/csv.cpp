#include "csv.h"

#include "failure.h"
#include "text.h"

#include <QStringDecoder>

#include <utility>

namespace Shipwright {

using namespace Qt::StringLiterals;

QList<CsvRow> parseCsv(const QByteArray &bytes, const QString &name)
{
    QStringDecoder decoder(QStringDecoder::Utf8);
    const QString text = QString(decoder(bytes)).replace(u"\r\n"_s, u"\n"_s);
    if (decoder.hasError())
        throw Failure(Exit::Usage, u"%1 is not in UTF-8."_s.arg(name));

    enum class At { Start, Plain, Quoted, Closed } at = At::Start;
    QList<CsvRow> rows;
    CsvRow row{1, {}};
    int line = 1;
    QString cell;
    const auto fail = [&name](int where, const QString &what) {
        throw Failure(Exit::Usage, u"%1, line %2: %3."_s.arg(name).arg(where).arg(what));
    };
    const auto endCell = [&] {
        row.cells += std::exchange(cell, {});
        at = At::Start;
    };
    const auto endRow = [&] {
        const bool isEmpty = row.cells.isEmpty() && at == At::Start;
        endCell();
        if (!isEmpty)
            rows += row;
        if (!isEmpty && row.cells.size() != rows.first().cells.size()) {
            fail(row.line,
                 u"it has %1, the header %2"_s.arg(countText(quint64(row.cells.size()), u"cell"_s))
                     .arg(rows.first().cells.size()));
        }
        row = {line, {}};
    };
    for (const QChar c : text) {
        if (c == u'\n')
            ++line;
        if (c == u'"') {
            if (at == At::Plain)
                fail(line, u"a quotation mark in a cell that does not start with one"_s);
            if (at == At::Closed)
                cell += c;
            at = at == At::Quoted ? At::Closed : At::Quoted;
        } else if (at == At::Quoted) {
            cell += c;
        } else if (c == u',') {
            endCell();
        } else if (c == u'\n') {
            endRow();
        } else if (at == At::Closed) {
            fail(line, u"text behind the closing quotation mark of a cell"_s);
        } else {
            cell += c;
            at = At::Plain;
        }
    }
    if (at == At::Quoted)
        fail(row.line, u"a quotation mark is not closed"_s);
    endRow();
    return rows;
}

} // namespace Shipwright
