#include "broker.h"
#include "receiverprocess.h"
#include "servicetool.h"

#include <QFile>
#include <QTest>

#include <algorithm>

using namespace Qt::StringLiterals;

/// How the receiver starts, and how it ends where it cannot.
class TestStartup : public QObject
{
    Q_OBJECT

private slots:
    void logsHowItConnects();
    void sendsNothingByItself();
    void showsAWindow();
    void answersFramesThatCameWhileTheDisplayWasLoading();
    void endsWithoutTheDevice();
    void endsWithoutThePlugin();
    void endsIfTheDeviceRefusesToConnect();
    void endsWhereThereIsNoBus();
    void endsIfTheDisplayIsBroken();
    void picksTheFirstLanguageThatHasACatalogue_data();
    void picksTheFirstLanguageThatHasACatalogue();
    void destroysTheManagerBeforeTheEngine();
    void announcesQmlDebuggingIfBuiltWithIt();

private:
    static void setFault(ReceiverProcess &receiver, const QByteArray &fault);
    static bool showsWindow(const QByteArrayList &log);
};

namespace {
const QByteArray connecting = "info|default|Connecting to \"can0\"";
const QByteArray stateConnecting =
    "info|default|canStateChanged: New CAN State QCanBusDevice::ConnectingState";
const QByteArray stateConnected =
    "info|default|canStateChanged: New CAN State QCanBusDevice::ConnectedState";
const QByteArray stateUnconnected =
    "info|default|canStateChanged: New CAN State QCanBusDevice::UnconnectedState";
const QByteArray connectionError =
    "critical|default|canFrameError: CAN Error QCanBusDevice::ConnectionError";
const QByteArray notInitialized = "critical|default|Moorline: Failed to initialize CAN device.";
} // namespace

void TestStartup::setFault(ReceiverProcess &receiver, const QByteArray &fault)
{
    const QString name = receiver.directory() + u"/faults"_s;
    QFile file(name);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(fault);
    receiver.setVariable(u"VIRTUALBUS_FAULTS"_s, name);
}

/// Qt Quick says so when it prepares to draw.
bool TestStartup::showsWindow(const QByteArrayList &log)
{
    return std::any_of(log.begin(), log.end(), [](const QByteArray &line) {
        return line.startsWith("debug|qt.scenegraph.general|");
    });
}

void TestStartup::logsHowItConnects()
{
    ReceiverProcess receiver;
    QVERIFY(receiver.start());
    ServiceTool tool;
    QCOMPARE(tool.request("0F1A02C0#A55A"), "0F584000#5AA5"); // the event loop runs
    QCOMPARE(receiver.log().mid(0, 3),
             (QByteArrayList{connecting, stateConnecting, stateConnected}));
    QVERIFY(receiver.log().at(3).startsWith("debug|default|onFramesReceived: "));
}

void TestStartup::sendsNothingByItself()
{
    ServiceTool tool;
    ReceiverProcess receiver;
    QVERIFY(receiver.start());
    QVERIFY(tool.receive(1000).isEmpty());
    QVERIFY(receiver.isRunning());
}

void TestStartup::showsAWindow()
{
    ReceiverProcess receiver;
    receiver.setVariable(u"QT_LOGGING_RULES"_s, u"qt.scenegraph.general=true"_s);
    QVERIFY(receiver.start());
    QTRY_VERIFY(showsWindow(receiver.log()));
}

void TestStartup::answersFramesThatCameWhileTheDisplayWasLoading()
{
    ServiceTool tool;
    ReceiverProcess receiver;
    QVERIFY(receiver.start());
    QVERIFY(tool.send("0F1A02C0#A55A 0F1A0AC0#A55A 0F1A12C0#A55A"));
    QCOMPARE(tool.receive(), "0F584000#5AA5");
    QCOMPARE(tool.receive(), "0F584800#5AA5");
    QCOMPARE(tool.receive(), "0F585000#5AA5");
}

void TestStartup::endsWithoutTheDevice()
{
    ReceiverProcess receiver;
    setFault(receiver, "create");
    receiver.setVariable(u"QT_LOGGING_RULES"_s, u"qt.scenegraph.general=true"_s);
    QVERIFY(receiver.run());
    QCOMPARE(receiver.exitCode(), 255);
    QCOMPARE(
        receiver.log(),
        (QByteArrayList{"critical|default|Moorline: Failed to create device  \"Bus fault: create\"",
                        notInitialized}));
}

void TestStartup::endsWithoutThePlugin()
{
    ReceiverProcess receiver(
        u"unshare"_s,
        {u"--mount"_s, u"--"_s, u"sh"_s, u"-c"_s, u"mount -t tmpfs tmpfs \"$0\" && exec \"$1\""_s,
         QStringLiteral(CANBUS_PLUGIN_DIR), QStringLiteral(DOCKHAND_EXECUTABLE)});
    QVERIFY(receiver.run());
    QCOMPARE(receiver.exitCode(), 255);
    QCOMPARE(
        receiver.log(),
        (QByteArrayList{
            "critical|default|Moorline: Failed to create device  \"No such plugin: 'socketcan'\"",
            notInitialized}));
}

void TestStartup::endsIfTheDeviceRefusesToConnect()
{
    ReceiverProcess receiver;
    setFault(receiver, "connect");
    receiver.setVariable(u"QT_LOGGING_RULES"_s, u"qt.scenegraph.general=true"_s);
    QVERIFY(receiver.run());
    QCOMPARE(receiver.exitCode(), 255);
    QCOMPARE(receiver.log(),
             (QByteArrayList{connecting, stateConnecting, connectionError, stateUnconnected,
                             notInitialized}));
}

void TestStartup::endsWhereThereIsNoBus()
{
    ReceiverProcess receiver;
    receiver.setVariable(u"VIRTUALBUS_SOCKET"_s, u"/nowhere/bus"_s);
    QVERIFY(receiver.run());
    QCOMPARE(receiver.exitCode(), 255);
    QCOMPARE(receiver.log(),
             (QByteArrayList{connecting, stateConnecting, connectionError, stateUnconnected,
                             notInitialized}));
}

void TestStartup::endsIfTheDisplayIsBroken()
{
    ReceiverProcess receiver(QStringLiteral(BROKEN_DISPLAY_EXECUTABLE));
    receiver.setVariable(u"QT_LOGGING_RULES"_s, u"qt.scenegraph.general=true"_s);
    QVERIFY(receiver.run());
    QCOMPARE(receiver.exitCode(), 255);
    QCOMPARE(receiver.log().mid(0, 3),
             (QByteArrayList{connecting, stateConnecting, stateConnected}));
    QCOMPARE(receiver.log().at(3),
             "warning|default|QQmlApplicationEngine failed to load component");
    QVERIFY(receiver.log().at(4).startsWith("warning|default|qrc:/main.qml:6:1: Expected token"));
    QVERIFY(!showsWindow(receiver.log()));
}

void TestStartup::picksTheFirstLanguageThatHasACatalogue_data()
{
    QTest::addColumn<QString>("locale");
    QTest::addColumn<QString>("languages");
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("en_US") << u"en_US.UTF-8"_s << QString() << QByteArray("catalogue en_US");
    QTest::newRow("no catalogue") << u"de_DE.UTF-8"_s << QString() << QByteArray("no catalogue");
    QTest::newRow("second language")
        << u"de_DE.UTF-8"_s << u"de_DE:en_US"_s << QByteArray("catalogue en_US");
    QTest::newRow("first of two") << u"fr_FR.UTF-8"_s << u"fr_FR:en_US"_s
                                  << QByteArray("catalogue fr_FR");
}

/// The display of this receiver logs one translated text and quits.
void TestStartup::picksTheFirstLanguageThatHasACatalogue()
{
    QFETCH(QString, locale);
    QFETCH(QString, languages);
    QFETCH(QByteArray, text);
    ReceiverProcess receiver(QStringLiteral(LANGUAGE_EXECUTABLE));
    receiver.setVariable(u"LC_ALL"_s, locale);
    receiver.setVariable(u"LANGUAGE"_s, languages);
    QVERIFY(receiver.run());
    QCOMPARE(receiver.exitCode(), 0);
    QVERIFY2(receiver.log().contains("debug|qml|" + text), receiver.log().join('\n'));
}

void TestStartup::destroysTheManagerBeforeTheEngine()
{
    ReceiverProcess receiver(QStringLiteral(LANGUAGE_EXECUTABLE));
    QVERIFY(receiver.run());
    QCOMPARE(receiver.log().constLast(), "debug|qml|at the end null");
}

void TestStartup::announcesQmlDebuggingIfBuiltWithIt()
{
    ReceiverProcess receiver;
    QVERIFY(receiver.start());
    QCOMPARE(receiver.announcesQmlDebugging(), bool(QML_DEBUG));
}

QTEST_GUILESS_MAIN(TestStartup)
#include "tst_startup.moc"
