#include "junit.h"

#include "decoder.h"
#include "text.h"

#include <QXmlStreamWriter>

namespace Shipwright {

using namespace Qt::StringLiterals;

namespace {

using Outcome = ConformanceResult::Outcome;

/// A frame with its meaning, as in "1B5830BA#01  P6 Record End answer: code 186 (failure)".
QString meaning(const QCanBusFrame &frame)
{
    return frameText(frame) + u"  "_s + decode(frame).text();
}

QString secondsText(qint64 milliseconds)
{
    return QString::number(double(milliseconds) / 1000, 'f', 3);
}

void writeProblem(QXmlStreamWriter &xml, const QString &element, const QString &message,
                  const QStringList &lines = {})
{
    xml.writeStartElement(element);
    xml.writeAttribute(u"message"_s, message);
    if (!lines.isEmpty())
        xml.writeCharacters(lines.join(u'\n'));
    xml.writeEndElement();
}

void writeCheck(QXmlStreamWriter &xml, const ConformanceResult &result)
{
    xml.writeStartElement(u"testcase"_s);
    xml.writeAttribute(u"classname"_s, u"shipwright.selftest"_s);
    xml.writeAttribute(u"name"_s, result.name);
    xml.writeAttribute(u"time"_s, secondsText(result.milliseconds));
    switch (result.outcome) {
    case Outcome::Passed:
        break;
    case Outcome::Failed: {
        const DeviationText text(result);
        QStringList lines{u"sent  "_s + text.sent, u"due   "_s + text.due, u"came  "_s + text.came,
                          u"All frames:"_s};
        for (const Exchanged &exchanged : result.frames)
            lines += decodedLine(exchanged.frame, decode(exchanged.frame),
                                 microSeconds(result.frames.first().frame.timeStamp()));
        writeProblem(xml, u"failure"_s, u"due "_s + text.due + u", came "_s + text.came, lines);
        break;
    }
    case Outcome::Skipped:
        writeProblem(xml, u"skipped"_s, u"runs with --destructive"_s);
        break;
    case Outcome::NotRun:
        writeProblem(xml, u"skipped"_s, u"not run"_s);
        break;
    }
    xml.writeEndElement();
}

} // namespace

DeviationText::DeviationText(const ConformanceResult &result)
    : sent(u"nothing"_s),
      due(result.due),
      came(result.came)
{
    if (result.cause >= 0)
        sent = meaning(result.frames.at(result.cause).frame);
    // The last frame is the wrong one.
    if (!result.frames.isEmpty() && result.frames.last().direction == Direction::Received)
        came = meaning(result.frames.last().frame);
}

QByteArray junitReport(const Conformance &conformance, const std::optional<Failure> &failure,
                       const QString &interfaceName, const QDateTime &start)
{
    const qsizetype notRun = conformance.count(Outcome::Skipped)
        + conformance.count(Outcome::NotRun);
    QByteArray bytes;
    QXmlStreamWriter xml(&bytes);
    xml.setAutoFormatting(true);
    xml.writeStartDocument();
    xml.writeStartElement(u"testsuites"_s);
    xml.writeStartElement(u"testsuite"_s);
    xml.writeAttribute(u"name"_s, u"shipwright selftest on "_s + printable(interfaceName));
    xml.writeAttribute(u"timestamp"_s, start.toString(u"yyyy-MM-ddThh:mm:ss"_s));
    xml.writeAttribute(u"time"_s, secondsText(start.msecsTo(QDateTime::currentDateTimeUtc())));
    xml.writeAttribute(u"tests"_s,
                       QString::number(conformance.results().size() + (failure ? 1 : 0)));
    xml.writeAttribute(u"failures"_s, QString::number(conformance.count(Outcome::Failed)));
    xml.writeAttribute(u"errors"_s, QString::number(failure ? 1 : 0));
    xml.writeAttribute(u"skipped"_s, QString::number(notRun));
    for (const ConformanceResult &result : conformance.results())
        writeCheck(xml, result);
    if (failure) {
        xml.writeStartElement(u"testcase"_s);
        xml.writeAttribute(u"classname"_s, u"shipwright.selftest"_s);
        xml.writeAttribute(u"name"_s, u"session"_s);
        xml.writeAttribute(u"time"_s, secondsText(0));
        writeProblem(xml, u"error"_s, printable(failure->message));
        xml.writeEndElement();
    }
    xml.writeEndDocument();
    return bytes;
}

} // namespace Shipwright
