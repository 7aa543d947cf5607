#include "receivertest.h"

#include <QDir>
#include <QFile>
#include <QTest>

using namespace Qt::StringLiterals;

QCanBusFrame frame(quint32 id, const char *payload)
{
    QCanBusFrame result(id, QByteArray::fromHex(payload));
    result.setExtendedFrameFormat(true);
    return result;
}

QCanBusFrame errorFrame()
{
    QCanBusFrame result(QCanBusFrame::ErrorFrame);
    // An identifier that would be accepted in a data frame.
    result.setFrameId(0x0F1A02C0);
    return result;
}

void ReceiverTest::receive(const QList<QCanBusFrame> &frames)
{
    device->deliver(frames);
}

void ReceiverTest::call(const char *slot, const QCanBusFrame &frame)
{
    QVERIFY2(QMetaObject::invokeMethod(manager.get(), slot, Qt::DirectConnection,
                                       Q_ARG(QCanBusFrame, frame)),
             slot);
}

QStringList ReceiverTest::eventsButDebug()
{
    QStringList lines = EventLog::take();
    lines.removeIf([](const QString &line) { return line.startsWith("debug |"_L1); });
    return lines;
}

QStringList ReceiverTest::sentFrames()
{
    QStringList lines = EventLog::take();
    lines.removeIf([](const QString &line) { return !line.startsWith("sent "_L1); });
    return lines;
}

void ReceiverTest::beginTransfer()
{
    receive({frame(0x1B1A0000, "020807060504"), frame(0x1B1A1000, "0208000009000000"),
             frame(0x1B1A2000, "0302000000"), frame(0x1B1AF000, "4142")});
    QVERIFY(session().outputFile.isOpen());
    QVERIFY(session().transferInProgress);
    QCOMPARE(session().expectedFrameNumber, 1u);
    manager->serialNumber = u"kept"_s;
    manager->serialNumberLength = 4;
    EventLog::take();
}

QStringList ReceiverTest::state()
{
    const QFile &file = session().outputFile;
    return {
        u"outputFile \"%1\" mode %2 at %3"_s.arg(file.fileName())
            .arg(file.openMode().toInt())
            .arg(file.pos()),
        u"outputFilePath \"%1\""_s.arg(session().outputFilePath),
        u"fileSize %1"_s.arg(session().fileSize),
        u"fileType %1"_s.arg(session().fileType),
        u"transferInProgress %1"_s.arg(session().transferInProgress),
        u"infoParam1 %1"_s.arg(session().infoParam1),
        u"infoParam2 %1"_s.arg(session().infoParam2),
        u"infoParam3 %1"_s.arg(session().infoParam3),
        u"infoFrameLimit %1"_s.arg(session().infoFrameLimit),
        u"infoFlag %1"_s.arg(session().infoFlag),
        u"numberOfBlocks %1"_s.arg(session().numberOfBlocks),
        u"currentBlockNumber %1"_s.arg(session().currentBlockNumber),
        u"blockDataLength %1"_s.arg(session().blockDataLength),
        u"blockBuffer %1"_s.arg(QString::fromLatin1(session().blockBuffer.toHex())),
        u"expectedFrameNumber %1"_s.arg(session().expectedFrameNumber),
        u"framesToFollow %1"_s.arg(session().framesToFollow),
        u"auxBuffer1 %1"_s.arg(QString::fromLatin1(session().auxBuffer1.toHex())),
        u"auxBuffer2 %1"_s.arg(QString::fromLatin1(session().auxBuffer2.toHex())),
        u"serialNumber \"%1\""_s.arg(manager->serialNumber),
        u"serialNumberLength %1"_s.arg(manager->serialNumberLength),
    };
}

void ReceiverTest::checkSandbox()
{
    const QString reason = ServiceTree::unsafe();
    QVERIFY2(reason.isEmpty(), qUtf8Printable(reason));
    qputenv("DOCKHAND_STAND_IN_LOG", QFile::encodeName(QDir::current().filePath(u"stand-ins"_s)));
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
}
