#include "receivertest.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTest>

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
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

// Takes the place of the system call in the whole process.
extern "C" int fsync(int descriptor)
{
    if (ReceiverTest::fsyncCalls == ReceiverTest::Logged) {
        const QFileInfo file(QFile::symLinkTarget(u"/proc/self/fd/%1"_s.arg(descriptor)));
        EventLog::add(u"fsync %1: %2 bytes, beside %3"_s.arg(file.filePath())
                          .arg(file.size())
                          .arg(file.dir().entryList(QDir::Files).join(u' ')));
    }
    if (ReceiverTest::fsyncCalls == ReceiverTest::Failing) {
        errno = EIO;
        return -1;
    }
    return int(syscall(SYS_fsync, descriptor));
}

void ReceiverTest::behaviour_data()
{
    QTest::addColumn<QString>("transcript");
    const QString program = QFileInfo(QCoreApplication::applicationFilePath()).fileName();
    QFile file(QFINDTESTDATA(program + u".txt"_s));
    QVERIFY(file.open(QIODevice::ReadOnly));
    static const QRegularExpression heading(u"^(?=[a-z])"_s, QRegularExpression::MultilineOption);
    const QStringList blocks = QString::fromUtf8(file.readAll()).split(heading);
    QVERIFY(blocks.size() > 1);
    for (const QString &block : blocks.sliced(1)) {
        const qsizetype name = block.indexOf(QRegularExpression(u"\\W"_s));
        QTest::newRow(qPrintable(block.first(name))) << block.sliced(name);
    }
}

void ReceiverTest::behaviour()
{
    QFETCH(const QString, transcript);
    const QStringList details{{}, u": handlers"_s, u": everything"_s};
    const qsizetype detail = details.indexOf(transcript.section(u'\n', 0, 0));
    QVERIFY(detail >= 0);
    play(Detail(detail), transcript.section(u'\n', 1));
}

void ReceiverTest::play(Detail detail, const QString &transcript)
{
    QStringList lines = EventLog::transcript(transcript);
    QString groups;
    lines.removeIf([&groups](const QString &line) {
        if (line.startsWith("each "_L1))
            groups += line.sliced(4) + u';';
        return line.startsWith(u'#') || line.startsWith("each "_L1);
    });
    groups.chop(1);
    for (const QString &group : groups.split(u';')) {
        QStringList once = lines;
        const QStringList values = group.split(u'|');
        for (qsizetype i = 0; i < values.size(); ++i)
            once.replaceInStrings(u'%' + QString::number(i + 1), values[i].trimmed());
        playOnce(detail, once);
        if (QTest::currentTestFailed())
            return;
    }
}

void ReceiverTest::playOnce(Detail detail, const QStringList &transcript)
{
    QStringList actual;
    QStringList before;
    for (const QString &line : transcript) {
        const QString verb = line.section(u' ', 0, 0);
        const QString rest = line.section(u' ', 1);
        const QString path = rest.section(u' ', 0, 0);
        if (verb == "file"_L1) {
            actual += u"file %1 %2"_s.arg(path, quoted(ServiceTree::read(path.toUtf8())));
        } else if (verb == "state"_L1) {
            actual += u"state "_s + valuesOf(rest.split(u", "_s)).join(u", "_s);
        } else if (verb == "changed"_L1) {
            QStringList changes = state();
            changes.removeIf([&before](const QString &field) { return before.contains(field); });
            actual += u"changed "_s + (changes.isEmpty() ? u"nothing"_s : changes.join(u", "_s));
        } else if (const QStringList present = state(); acts(line)) {
            before = present;
            const QStringList happened = events(detail);
            actual += line;
            if (verb != "given"_L1)
                actual += happened;
        }
    }
    QCOMPARE(actual, transcript);
}

bool ReceiverTest::acts(const QString &line)
{
    const QString verb = line.section(u' ', 0, 0);
    const QString rest = line.section(u' ', 1);
    const QString first = rest.section(u' ', 0, 0);
    const QString others = rest.section(u' ', 1);
    if (verb == "receive"_L1 || verb == "given"_L1) {
        receive(rest);
    } else if (line == "call processReceivedConfigFile"_L1) {
        manager->processReceivedConfigFile();
    } else if (line == "call processReceivedMenuFile"_L1) {
        manager->processReceivedMenuFile();
    } else if (line.startsWith("call CleanUpMenuDirectory "_L1)) {
        manager->CleanUpMenuDirectory(others);
    } else if (line.startsWith("call DecompressMenuFile "_L1)) {
        manager->DecompressMenuFile(others);
    } else if (verb == "call"_L1) {
        call(first, others);
    } else if (verb == "send"_L1) {
        send(rest.split(u' '));
    } else if (verb == "shell"_L1) {
        runShell(rest);
    } else if (verb == "tools"_L1) {
        runShell(
            u"for _ in $(seq 1000); do [ \"$(grep -cs . tools)\" = 2 ] && break; sleep 0.01; done; "
            "sort tools | tr '\\t' ' '; rm tools"_s);
    } else if (verb == "read-only"_L1) {
        m_readOnly = std::make_unique<ServiceTree::ReadOnly>(first.toUtf8());
    } else if (verb == "program"_L1) {
        replaceProgram(first, others.toUtf8());
    } else if (verb == "refuse"_L1) {
        FakeCanDevice::behaviour.writeError = rest;
    } else if (verb == "restart"_L1) {
        stopReceiver();
        startReceiver();
    } else {
        return false;
    }
    return true;
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

/// By way of popen(), as qemu-arm does not know the clone() that QProcess makes.
void ReceiverTest::runShell(const QString &script)
{
    const QString command = u"cd %1; %2"_s.arg(ServiceTree::path(""), script);
    std::FILE *const output = popen(command.toUtf8().constData(), "r");
    QVERIFY(output);
    QFile lines;
    QVERIFY(lines.open(output, QIODevice::ReadOnly));
    const QStringList printed = EventLog::transcript(QString::fromUtf8(lines.readAll()));
    for (const QString &line : printed)
        EventLog::add(line);
    lines.close();
    if (const int status = pclose(output); status != 0)
        EventLog::add(u"exit status %1"_s.arg(status));
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
    qputenv("DOCKHAND_STAND_IN_LOG", QFile::encodeName(ServiceTree::path("tools")));
    qputenv("TZ", "Europe/Berlin"); // the board's own time zone does not matter
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
    fsyncCalls = Unseen;
    m_readOnly.reset();
    manager.reset();
    EventLog::stop();
    // The receiver keeps its device for good; a test executable has many receivers.
    device.reset();
    QFile::remove(u"Unknown"_s); // the file of an unknown type
    qputenv("PATH", m_path);
    QDir(u"programs"_s).removeRecursively();
}
