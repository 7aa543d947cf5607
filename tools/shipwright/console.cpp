#include "console.h"

#include <QJsonDocument>

#include <cmath>
#include <cstdio>
#include <sys/ioctl.h>
#include <unistd.h>

namespace Shipwright {

using namespace Qt::StringLiterals;

namespace {

/// Bits of a frame with a 29-bit identifier and 8 bytes, interframe space included and no bit
/// stuffed: the fewest there can be, so that the ceiling is one that no bus exceeds.
constexpr double bitsPerFrame = 131;
constexpr double bytesPerFrame = 8;
constexpr int barWidth = 24;
constexpr qint64 redrawInterval = 100;

void print(FILE *stream, const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
    std::fflush(stream);
}

QString size(double bytes)
{
    if (bytes < 1000)
        return u"%1 B"_s.arg(bytes, 0, 'f', 0);
    if (bytes < 1e6)
        return u"%1 kB"_s.arg(bytes / 1e3, 0, 'f', 1);
    return u"%1 MB"_s.arg(bytes / 1e6, 0, 'f', 2);
}

QString count(quint64 number, const QString &noun)
{
    return u"%1 %2%3"_s.arg(QString::number(number), noun, number == 1 ? QString() : u"s"_s);
}

QString duration(double seconds)
{
    const auto whole = std::llround(seconds);
    return u"%1:%2"_s.arg(whole / 60).arg(whole % 60, 2, 10, QLatin1Char('0'));
}

} // namespace

Console::Console(bool json, int columns)
    : m_json(json),
      m_columns(json ? 0 : columns)
{
}

int Console::terminalColumns()
{
    winsize window{};
    if (!isatty(STDOUT_FILENO))
        return 0;
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &window) != 0 || window.ws_col == 0)
        return 80;
    return window.ws_col;
}

void Console::report(const QString &event, const QString &text, const QJsonObject &fields)
{
    endBar();
    if (!m_json) {
        print(stdout, text + u'\n');
        return;
    }
    QJsonObject object = fields;
    object.insert(u"event"_s, event);
    print(stdout, QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact)) + u'\n');
}

void Console::failure(const Failure &failure, const QString &receiverState)
{
    endBar();
    QString text = u"shipwright: "_s + failure.message + u'\n';
    if (!receiverState.isEmpty())
        text += receiverState + u'\n';
    if (!failure.hint.isEmpty())
        text += u"Try: "_s + failure.hint + u'\n';
    print(stderr, text);
    if (m_json) {
        report(u"failure"_s, {},
               {{u"status"_s, int(failure.exit)},
                {u"message"_s, failure.message},
                {u"receiver"_s, receiverState},
                {u"hint"_s, failure.hint}});
    }
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

QString Console::figures(const TransferProgress &progress) const
{
    const double rate = bytesPerSecond(progress.bytes);
    QStringList parts{u"%1 of %2"_s.arg(size(double(progress.bytes)), size(double(progress.total))),
                      u"%1/s"_s.arg(size(rate))};
    if (const auto share = busShare(rate); share && rate > 0)
        parts += u"%1 % of the bus"_s.arg(*share * 100, 0, 'f', 0);
    if (progress.phase == TransferProgress::Phase::Confirming)
        parts += u"waiting for the receiver to check the file"_s;
    else if (progress.phase == TransferProgress::Phase::Sending && rate > 0)
        parts += u"%1 left"_s.arg(duration(double(progress.total - progress.bytes) / rate));
    if (progress.repeated > 0)
        parts += count(progress.repeated, u"record"_s) + u" sent again"_s;
    return parts.join(u", "_s);
}

void Console::progress(const TransferProgress &progress)
{
    const bool confirmed = progress.phase == TransferProgress::Phase::Confirmed;
    int percent = 100;
    if (!confirmed) {
        percent = progress.total == 0 ? 0 : int(progress.bytes * 100 / progress.total);
        percent = qMin(percent, 99);
    }

    if (m_columns > 0) {
        const bool isDue = progress.phase != TransferProgress::Phase::Sending
            || !m_sinceDrawn.isValid() || m_sinceDrawn.elapsed() >= redrawInterval;
        if (isDue) {
            m_sinceDrawn.start();
            drawBar(percent, figures(progress));
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
    report(u"progress"_s, u"%1 %: %2"_s.arg(percent, 3).arg(figures(progress)), fields);
}

void Console::drawBar(int percent, const QString &figures)
{
    const int filled = percent * barWidth / 100;
    QString line = u"[%1%2] %3 % %4"_s.arg(QString(filled, u'#'), QString(barWidth - filled, u'-'))
                       .arg(percent, 3)
                       .arg(figures);
    line.truncate(m_columns - 1);
    print(stdout, u"\r\x1b[K"_s + line);
    m_barDrawn = true;
}

void Console::endBar()
{
    if (m_barDrawn)
        print(stdout, u"\n"_s);
    m_barDrawn = false;
}

void Console::finishTransfer(const TransferResult &result)
{
    const double rate = bytesPerSecond(result.bytes);
    const QString crc = QString::number(result.crc, 16).rightJustified(8, u'0');
    QString text = u"Sent %1 file %2: %3 in %4, CRC-32 0x%5, %6 s, %7/s"_s.arg(
        fileTypeName(m_fileType), m_fileName, count(result.bytes, u"byte"_s),
        count(result.records, u"record"_s), crc,
        QString::number(double(result.milliseconds) / 1000, 'f', 1), size(rate));
    if (const auto share = busShare(rate))
        text += u" (%1 % of the bus)"_s.arg(*share * 100, 0, 'f', 0);
    if (result.repeated > 0)
        text += u"; "_s + count(result.repeated, u"record"_s) + u" sent again"_s;
    report(u"sent"_s, text + u'.',
           {{u"file"_s, m_fileName},
            {u"type"_s, fileTypeName(m_fileType)},
            {u"bytes"_s, qint64(result.bytes)},
            {u"records"_s, qint64(result.records)},
            {u"repeated"_s, qint64(result.repeated)},
            {u"crc"_s, crc},
            {u"milliseconds"_s, result.milliseconds}});
}

} // namespace Shipwright
