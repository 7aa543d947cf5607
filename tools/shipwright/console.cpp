#include "console.h"

#include "files.h"
#include "filetypes.h"
#include "text.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QJsonDocument>

#include <cerrno>
#include <cmath>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

namespace Shipwright {

using namespace Qt::StringLiterals;

namespace {

/// Bits of a frame with a 29-bit identifier and 8 bytes, with interframe space and without stuff
/// bits: the least a frame can take, so that no bus exceeds 100 %.
constexpr double bitsPerFrame = 131;
constexpr double bytesPerFrame = 8;
constexpr int barWidth = 24;
constexpr qint64 redrawInterval = 100;
/// Counts up when a program that reads the events has to change.
constexpr int jsonVersion = 1;

/// \a object on one line; escapes the control characters that JSON allows.
QString jsonLine(const QJsonObject &object)
{
    return printable(QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact)));
}

/// printable(), line by line.
QString printableLines(const QString &text)
{
    QStringList lines = text.split(u'\n');
    for (QString &line : lines)
        line = printable(line);
    return lines.join(u'\n');
}

/// The width of the terminal, 0 when standard output is none.
int terminalColumns()
{
    winsize window{};
    if (!isatty(STDOUT_FILENO))
        return 0;
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &window) != 0 || window.ws_col == 0)
        return 80;
    return window.ws_col;
}

QString duration(double seconds)
{
    const auto whole = std::llround(seconds);
    return u"%1:%2"_s.arg(whole / 60).arg(whole % 60, 2, 10, QLatin1Char('0'));
}

} // namespace

Console::Console(bool json, const QString &command, QString interfaceName)
    : m_json(json),
      m_interface(std::move(interfaceName))
{
    if (m_json) {
        report(u"start"_s, {},
               {{u"version"_s, jsonVersion},
                {u"tool"_s, QCoreApplication::applicationVersion()},
                {u"command"_s, command}});
    }
}

void Console::print(const QString &text)
{
    const int error = writeAll(STDOUT_FILENO, text.toUtf8());
    if (error != 0 && error != EINTR)
        m_outputError = error;
}

void Console::report(const QString &event, const QString &text, const QJsonObject &fields)
{
    endBar();
    if (!m_json) {
        print(printableLines(text) + u'\n');
        return;
    }
    QJsonObject object = fields;
    object.insert(u"event"_s, event);
    object.insert(u"time"_s, QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs));
    if (!object.contains(u"interface"_s)) {
        object.insert(u"interface"_s,
                      m_interface.isEmpty() ? QJsonValue() : QJsonValue(m_interface));
    }
    print(jsonLine(object) + u'\n');
}

void Console::warn(const QString &text)
{
    endBar();
    writeAll(STDERR_FILENO, (u"shipwright: Warning: "_s + printableLines(text) + u'\n').toUtf8());
    if (m_json)
        report(u"warning"_s, {}, {{u"message"_s, text}});
}

void Console::failure(const Failure &failure, const QString &receiverState)
{
    endBar();
    QString text = u"shipwright: "_s + failure.message + u'\n';
    if (!receiverState.isEmpty())
        text += receiverState + u'\n';
    if (!failure.hint.isEmpty())
        text += u"Try: "_s + failure.hint + u'\n';
    writeAll(STDERR_FILENO, printableLines(text).toUtf8());
    if (m_json) {
        report(u"failure"_s, {},
               {{u"status"_s, int(failure.exit)},
                {u"message"_s, failure.message},
                {u"receiver"_s, receiverState},
                {u"hint"_s, failure.hint}});
    }
}

void Console::checkOutput() const
{
    if (m_outputError == 0)
        return;
    throw Failure(Exit::LocalFile,
                  u"Standard output cannot be written: %1."_s.arg(qt_error_string(m_outputError)));
}

void Console::startTransfer(const QString &fileName, quint32 fileType,
                            std::optional<quint32> bitRate)
{
    m_fileName = fileName;
    m_fileType = fileType;
    m_bitRate = bitRate;
    m_lastStep = -1;
    m_repeatsShown = 0;
    m_sinceStart.start();
    m_sinceDrawn.invalidate();
}

double Console::bytesPerSecond(quint64 bytes) const
{
    const double seconds = double(m_sinceStart.nsecsElapsed()) / 1e9;
    return seconds > 0 ? double(bytes) / seconds : 0;
}

std::optional<double> Console::busShare(double bytesPerSecond) const
{
    if (!m_bitRate)
        return std::nullopt;
    return bytesPerSecond * bitsPerFrame / bytesPerFrame / *m_bitRate;
}

QString Console::busShareText(double bytesPerSecond) const
{
    const std::optional<double> share = busShare(bytesPerSecond);
    if (!share)
        return {};
    if (*share > 1)
        return u"more than a bus of %1 bit/s can carry: check --bitrate"_s.arg(*m_bitRate);
    return u"%1 % of the bus"_s.arg(*share * 100, 0, 'f', 0);
}

QStringList Console::figures(const TransferProgress &progress) const
{
    const double rate = bytesPerSecond(progress.bytes);
    QStringList parts{
        u"%1 of %2"_s.arg(sizeText(double(progress.bytes)), sizeText(double(progress.total))),
        u"%1/s"_s.arg(sizeText(rate))};
    if (const QString share = busShareText(rate); !share.isEmpty() && rate > 0)
        parts += share;
    if (progress.phase == TransferProgress::Phase::Confirming)
        parts += u"waiting for the receiver to check the file"_s;
    else if (progress.phase == TransferProgress::Phase::Sending && rate > 0)
        parts += u"%1 left"_s.arg(duration(double(progress.total - progress.bytes) / rate));
    if (progress.repeated > 0)
        parts += countText(progress.repeated, u"record"_s) + u" sent again"_s;
    return parts;
}

void Console::progress(const TransferProgress &progress)
{
    const bool confirmed = progress.phase == TransferProgress::Phase::Confirmed;
    int percent = 100;
    if (!confirmed) {
        percent = progress.total == 0 ? 0 : int(progress.bytes * 100 / progress.total);
        percent = qMin(percent, 99);
    }

    // Read each time: the user may resize the window.
    if (const int columns = m_json ? 0 : terminalColumns()) {
        const bool isDue = progress.phase != TransferProgress::Phase::Sending
            || !m_sinceDrawn.isValid() || m_sinceDrawn.elapsed() >= redrawInterval;
        if (isDue) {
            m_sinceDrawn.start();
            drawBar(percent, figures(progress), columns);
        }
        return;
    }
    // Not a terminal: a line for each tenth, each repeated record and each phase.
    const int step = progress.phase == TransferProgress::Phase::Sending ? percent / 10
                                                                        : 100 + int(progress.phase);
    if (step == m_lastStep && progress.repeated == m_repeatsShown)
        return;
    m_lastStep = step;
    m_repeatsShown = progress.repeated;
    const double rate = bytesPerSecond(progress.bytes);
    QJsonObject fields{{u"file"_s, m_fileName},
                       {u"type"_s, fileTypeName(m_fileType)},
                       {u"percent"_s, percent},
                       {u"bytes"_s, qint64(progress.bytes)},
                       {u"total"_s, qint64(progress.total)},
                       {u"records"_s, qint64(progress.records)},
                       {u"totalRecords"_s, qint64(progress.totalRecords)},
                       {u"repeated"_s, qint64(progress.repeated)},
                       {u"bytesPerSecond"_s, qRound64(rate)}};
    if (const auto share = busShare(rate))
        fields.insert(u"busShare"_s, *share);
    report(u"progress"_s, u"%1 %: %2"_s.arg(percent, 3).arg(figures(progress).join(u", "_s)),
           fields);
}

void Console::drawBar(int percent, QStringList figures, int columns)
{
    // The last column stays free, so that no terminal wraps the line. A figure that does not fit is
    // left out whole: a part of it would be a wrong number.
    const int room = columns - 1;
    QString line = u"%1 %"_s.arg(percent, 3);
    const int width = qMin(barWidth, room - int(line.size()) - 3);
    if (width >= 1) {
        const int filled = percent * width / 100;
        line.prepend(u"[%1%2] "_s.arg(QString(filled, u'#'), QString(width - filled, u'-')));
    }
    while (!figures.isEmpty() && line.size() + 1 + figures.join(u", "_s).size() > room)
        figures.removeLast();
    if (!figures.isEmpty())
        line += u' ' + figures.join(u", "_s);
    print(u"\r\x1b[K"_s + line);
    m_barDrawn = true;
}

void Console::endBar()
{
    if (m_barDrawn)
        print(u"\n"_s);
    m_barDrawn = false;
    if (m_linesDrawn > 0)
        print(u"\x1b[%1A\x1b[J"_s.arg(m_linesDrawn));
    m_linesDrawn = 0;
}

bool Console::showLines(const QStringList &lines)
{
    const int columns = m_json ? 0 : terminalColumns();
    if (columns == 0)
        return false;
    endBar();
    QString text;
    for (const QString &line : lines)
        text += printable(line).left(columns - 1) + u'\n';
    print(text);
    m_linesDrawn = lines.size();
    return true;
}

void Console::finishTransfer(const TransferResult &result)
{
    const double rate = bytesPerSecond(result.bytes);
    QString text = u"Sent %1 file %2: %3 in %4, CRC-32 %5, %6 s, %7/s"_s.arg(
        fileTypeName(m_fileType), m_fileName, countText(result.bytes, u"byte"_s),
        countText(result.records, u"record"_s), hexNumber(result.crc),
        QString::number(double(result.milliseconds) / 1000, 'f', 1), sizeText(rate));
    if (m_bitRate)
        text += u" (%1)"_s.arg(busShareText(rate));
    if (result.repeated > 0)
        text += u"; "_s + countText(result.repeated, u"record"_s) + u" sent again"_s;
    report(u"sent"_s, text + u'.',
           {{u"file"_s, m_fileName},
            {u"type"_s, fileTypeName(m_fileType)},
            {u"bytes"_s, qint64(result.bytes)},
            {u"records"_s, qint64(result.records)},
            {u"repeated"_s, qint64(result.repeated)},
            {u"crc"_s, hexDigits(result.crc)},
            {u"milliseconds"_s, result.milliseconds}});
}

} // namespace Shipwright
