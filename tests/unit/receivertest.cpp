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
