#include "receivertest.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTest>

#include <utility>

using namespace Qt::StringLiterals;

namespace {

QList<QCanBusFrame> framesOf(const QStringList &texts)
{
    QList<QCanBusFrame> frames;
    for (const QString &text : texts)
        frames.append(EventLog::frame(text));
    return frames;
}

/// What every frame logs on its way in and out.
bool isOfTheWay(const QString &line)
{
    static const QRegularExpression way(
        u"^(debug|info) [|](onFramesReceived|processP[36]CanCommand|sendP[36]ResposesMessage"
        "|writeFrame):"_s);
    return way.match(line).hasMatch();
}

QString quoted(const QByteArray &content)
{
    return content == "(no file)" ? u"(no file)"_s : QDebug::toString(content);
}

} // namespace

void ReceiverTest::play(Detail detail, const QString &transcript)
{
    if (QTest::currentTestFailed())
        return;
    QStringList expected = EventLog::transcript(transcript);
    expected.removeIf([](const QString &line) { return line.startsWith(u'#'); });
    QStringList actual;
    QStringList before;
    for (const QString &line : std::as_const(expected)) {
        const QString verb = line.section(u' ', 0, 0);
        const QString rest = line.section(u' ', 1);
        if (verb == "file"_L1) {
            const QString path = rest.section(u' ', 0, 0);
            actual += u"file %1 %2"_s.arg(path, quoted(ServiceTree::read(path.toUtf8())));
        } else if (verb == "state"_L1) {
            actual += u"state "_s + valuesOf(rest.split(u", "_s)).join(u", "_s);
        } else if (verb == "changed"_L1) {
            QStringList changes = state();
            changes.removeIf([&before](const QString &field) { return before.contains(field); });
            actual += u"changed "_s + (changes.isEmpty() ? u"nothing"_s : changes.join(u", "_s));
        } else if (acts(verb)) {
            before = state();
            act(verb, rest);
            const QStringList happened = events(detail);
            actual += line;
            if (verb != "given"_L1)
                actual += happened;
        }
    }
    QCOMPARE(actual, expected);
}

bool ReceiverTest::acts(const QString &verb)
{
    return QStringList{u"receive"_s, u"given"_s, u"call"_s, u"send"_s, u"restart"_s}.contains(verb);
}

void ReceiverTest::act(const QString &verb, const QString &rest)
{
    if (verb == "call"_L1) {
        call(rest.section(u' ', 0, 0), rest.section(u' ', 1));
    } else if (verb == "send"_L1) {
        send(rest.split(u' '));
    } else if (verb == "restart"_L1) {
        stopReceiver();
        startReceiver();
    } else {
        receive(rest);
    }
}

/// The values that the fields named in the beginning of \a fields have.
QStringList ReceiverTest::valuesOf(const QStringList &fields) const
{
    QStringList values;
    const QStringList present = state();
    for (const QString &field : fields) {
        for (const QString &value : present) {
            if (value.section(u' ', 0, 0) == field.section(u' ', 0, 0))
                values += value;
        }
    }
    return values;
}

void ReceiverTest::receive(const QString &frames)
{
    device->deliver(framesOf(frames.split(u' ')));
}

void ReceiverTest::call(const QString &slot, const QString &frame)
{
    QVERIFY2(QMetaObject::invokeMethod(manager.get(), slot.toLatin1().constData(),
                                       Qt::DirectConnection,
                                       Q_ARG(QCanBusFrame, EventLog::frame(frame))),
             qPrintable(slot));
}

/// \a words: the slot, its numbers, and the payload after a #.
void ReceiverTest::send(QStringList words)
{
    const QByteArray slot = words.takeFirst().toLatin1();
    const QByteArray payload = EventLog::frame(words.takeLast()).payload();
    QList<quint32> numbers;
    for (const QString &word : std::as_const(words))
        numbers += word.toUInt(nullptr, 0);
    const auto invoke = [&](auto... index) {
        return QMetaObject::invokeMethod(manager.get(), slot.constData(),
                                         Q_ARG(quint32, numbers.at(index))...,
                                         Q_ARG(QByteArray, payload));
    };
    QVERIFY(numbers.size() == 3       ? invoke(0, 1, 2)
                : numbers.size() == 4 ? invoke(0, 1, 2, 3)
                                      : invoke(0, 1, 2, 3, 4));
}

QStringList ReceiverTest::events(Detail detail)
{
    QStringList lines = EventLog::take();
    lines.removeIf([detail](const QString &line) {
        return (detail == Outside && line.startsWith("debug |"_L1))
            || (detail != Everything && isOfTheWay(line));
    });
    return lines;
}

void ReceiverTest::replaceProgram(const QString &program, const QByteArray &script)
{
    const QDir programs = QDir::current().filePath(u"programs"_s);
    QVERIFY(programs.mkpath(u"."_s));
    QFile file(programs.filePath(program));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("#!/bin/sh\n" + script + '\n');
    QVERIFY(file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    const QByteArray place = QFile::encodeName(programs.path()) + ':';
    if (const QByteArray path = qgetenv("PATH"); !path.startsWith(place))
        qputenv("PATH", place + path);
}

QStringList ReceiverTest::state() const
{
    const KV_MultiPacket_Transfer &session = manager->multiPacketTransfer;
    const QFile &file = session.outputFile;
    const std::pair<const char *, QVariant> fields[] = {
        {"outputFile", quoted(file.fileName().toUtf8())},
        {"outputFileMode", file.openMode().toInt()},
        {"outputFilePosition", file.pos()},
        {"outputFilePath", quoted(session.outputFilePath.toUtf8())},
        {"fileSize", session.fileSize},
        {"fileType", session.fileType},
        {"transferInProgress", session.transferInProgress},
        {"infoParam1", session.infoParam1},
        {"infoParam2", session.infoParam2},
        {"infoParam3", session.infoParam3},
        {"infoFrameLimit", session.infoFrameLimit},
        {"infoFlag", session.infoFlag},
        {"numberOfBlocks", session.numberOfBlocks},
        {"currentBlockNumber", session.currentBlockNumber},
        {"blockDataLength", session.blockDataLength},
        {"blockBuffer", session.blockBuffer.toHex()},
        {"expectedFrameNumber", session.expectedFrameNumber},
        {"framesToFollow", session.framesToFollow},
        {"auxBuffer1", session.auxBuffer1.toHex()},
        {"auxBuffer2", session.auxBuffer2.toHex()},
        {"serialNumber", manager->serialNumber},
        {"serialNumberLength", manager->serialNumberLength},
    };
    QStringList lines;
    for (const auto &[name, value] : fields)
        lines.append(QLatin1StringView(name) + u' ' + value.toString());
    return lines;
}

void ReceiverTest::checkSandbox()
{
    const QString reason = ServiceTree::unsafe();
    QVERIFY2(reason.isEmpty(), qUtf8Printable(reason));
    qputenv("DOCKHAND_STAND_IN_LOG", QFile::encodeName(QDir::current().filePath(u"stand-ins"_s)));
    m_path = qgetenv("PATH");
}

void ReceiverTest::startReceiver()
{
    ServiceTree::reset();
    FakeCanDevice::behaviour = {};
    FakeCanDevice::requests.clear();
    manager = std::make_unique<CanBusManager>(nullptr);
    connect(manager.get(), &CanBusManager::statusUpdated, this, &EventLog::addDisplay);
    EventLog::start();
    QVERIFY(manager->init());
    device.reset(FakeCanDevice::latest);
    EventLog::take();
}

void ReceiverTest::stopReceiver()
{
    manager.reset();
    EventLog::stop();
    // The receiver keeps its device for good; a test executable has many receivers.
    device.reset();
    qputenv("PATH", m_path);
    QDir(u"programs"_s).removeRecursively();
}
