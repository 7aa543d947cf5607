#include "broker.h"
#include "busclient.h"
#include "receiverprocess.h"

#include <QFile>
#include <QTest>

#include <algorithm>
#include <csignal>

using namespace Qt::StringLiterals;

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

/// How the receiver starts, and how it ends if it cannot start.
class TestStartup : public QObject
{
    Q_OBJECT

private:
    static void setFault(ReceiverProcess &receiver, const QByteArray &fault)
    {
        const QString name = receiver.directory() + u"/faults"_s;
        QFile file(name);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(fault);
        receiver.setVariable(u"VIRTUALBUS_FAULTS"_s, name);
    }

    /// Qt Quick logs this category when it prepares to draw.
    static bool showsWindow(const QByteArrayList &log)
    {
        return std::any_of(log.begin(), log.end(), [](const QByteArray &line) {
            return line.startsWith("debug|qt.scenegraph.general|");
        });
    }

    /// Runs the receiver, and the variant whose display logs that it is loaded. Both must fail with
    /// exactly these log lines: neither loads a display or shows a window.
    static void failsToStart(const QByteArrayList &log,
                             const std::function<void(ReceiverProcess &)> &prepare)
    {
        for (const auto *program : {DOCKHAND_EXECUTABLE, LOGGING_DISPLAY_EXECUTABLE}) {
            ReceiverProcess receiver(QString::fromLatin1(program));
            receiver.setVariable(u"QT_LOGGING_RULES"_s, u"qt.scenegraph.general=true"_s);
            prepare(receiver);
            QVERIFY(receiver.run());
            QCOMPARE(receiver.exitCode(), 255);
            QCOMPARE(receiver.log(), log);
        }
    }

private slots:
    /// Nothing is logged about catalogues, whether there is one for the language or not.
    void logsHowItConnects()
    {
        for (const QString &language : {u"en_US"_s, u"de_DE"_s}) {
            ReceiverProcess receiver;
            receiver.setVariable(u"LANGUAGE"_s, language);
            QVERIFY(receiver.start());
            BusClient tool;
            QCOMPARE(tool.request("0F1A02C0#A55A"), "0F584000#5AA5"); // the event loop runs
            QCOMPARE(receiver.log().mid(0, 3),
                     (QByteArrayList{connecting, stateConnecting, stateConnected}));
            QVERIFY(receiver.log().at(3).startsWith("debug|default|onFramesReceived: "));
        }
    }

    void sendsNothingByItself()
    {
        BusClient tool;
        ReceiverProcess receiver;
        QVERIFY(receiver.start());
        QVERIFY(tool.receive(1000).isEmpty());
        QVERIFY(receiver.isRunning());
    }

    void showsAWindow()
    {
        ReceiverProcess receiver;
        receiver.setVariable(u"QT_LOGGING_RULES"_s, u"qt.scenegraph.general=true"_s);
        QVERIFY(receiver.start());
        QTRY_VERIFY(showsWindow(receiver.log()));
    }

    /// The receiver is stopped before its display is loaded, until the frames are there.
    void framesThatCameWhileTheDisplayWasLoadingAreShownAndAnswered()
    {
        const QByteArray loaded = "debug|qml|no catalogue";
        BusClient tool;
        bool wasLoading = false;
        for (int attempt = 0; attempt < 20 && !wasLoading; ++attempt) {
            ReceiverProcess receiver(QStringLiteral(LOGGING_DISPLAY_EXECUTABLE), {u"stay"_s});
            QVERIFY(receiver.start());
            QCOMPARE(::kill(receiver.processId(), SIGSTOP), 0);
            wasLoading = !receiver.log().contains(loaded);
            if (wasLoading)
                QVERIFY(tool.send("0F1A02C0#A55A 0F1A0AC0#A55A 0F1A12C4#") && tool.isSilent());
            QCOMPARE(::kill(receiver.processId(), SIGCONT), 0);
            if (!wasLoading)
                continue;
            QCOMPARE(tool.receive(), "0F584000#5AA5");
            QCOMPARE(tool.receive(), "0F584800#5AA5");
            QCOMPARE(tool.receive(), "0F585000#");
            QByteArrayList lines = receiver.log();
            lines.removeIf([](const QByteArray &line) {
                return !line.startsWith("debug|qml|")
                    && !line.startsWith("debug|default|onFramesReceived: Frame");
            });
            QCOMPARE(lines,
                     (QByteArrayList{
                         loaded,
                         "debug|default|onFramesReceived: Frame: 0x \"F1A02C0\" Payload: \"A5-5A\"",
                         "debug|qml|shown Connected to Shipwright",
                         "debug|default|onFramesReceived: Frame: 0x \"F1A0AC0\" Payload: \"A5-5A\"",
                         "debug|qml|shown Connected to Shipwright",
                         "debug|default|onFramesReceived: Frame: 0x \"F1A12C4\" Payload: \"\"",
                         "debug|qml|shown Configuration Complete"}));
        }
        QVERIFY(wasLoading);
    }

    void endsWithoutTheDevice()
    {
        failsToStart({"critical|default|Moorline: Failed to create device  \"Bus fault: create\"",
                      notInitialized},
                     [](ReceiverProcess &receiver) { setFault(receiver, "create"); });
    }

    void endsWithoutThePlugin()
    {
        failsToStart(
            {"critical|default|Moorline: Failed to create device  \"No such plugin: 'socketcan'\"",
             notInitialized},
            [](ReceiverProcess &receiver) { receiver.hide(QStringLiteral(CANBUS_PLUGIN_DIR)); });
    }

    void endsIfTheDeviceRefusesToConnect()
    {
        failsToStart(
            {connecting, stateConnecting, connectionError, stateUnconnected, notInitialized},
            [](ReceiverProcess &receiver) { setFault(receiver, "connect"); });
    }

    void endsWhereThereIsNoBus()
    {
        failsToStart(
            {connecting, stateConnecting, connectionError, stateUnconnected, notInitialized},
            [](ReceiverProcess &receiver) {
                receiver.setVariable(u"VIRTUALBUS_SOCKET"_s, u"/nowhere/bus"_s);
            });
    }

    void endsIfTheDisplayIsBroken()
    {
        ReceiverProcess receiver(QStringLiteral(BROKEN_DISPLAY_EXECUTABLE));
        receiver.setVariable(u"QT_LOGGING_RULES"_s, u"qt.scenegraph.general=true"_s);
        QVERIFY(receiver.run());
        QCOMPARE(receiver.exitCode(), 255);
        QCOMPARE(
            receiver.log().mid(0, 4),
            (QByteArrayList{connecting, stateConnecting, stateConnected,
                            "warning|default|QQmlApplicationEngine failed to load component"}));
        QVERIFY(
            receiver.log().at(4).startsWith("warning|default|qrc:/main.qml:6:1: Expected token"));
        QVERIFY(!showsWindow(receiver.log()));
    }

    void picksTheFirstLanguageThatHasACatalogue_data()
    {
        QTest::addColumn<QString>("languages");
        QTest::addColumn<QByteArray>("text");
        QTest::newRow("en_US") << u"en_US"_s << QByteArray("catalogue en_US");
        QTest::newRow("no catalogue") << u"de_DE"_s << QByteArray("no catalogue");
        QTest::newRow("second language") << u"de_DE:en_US"_s << QByteArray("catalogue en_US");
        QTest::newRow("first of two") << u"fr_FR:en_US"_s << QByteArray("catalogue fr_FR");
    }

    /// The display of this receiver logs one translated text and quits. In the end the engine
    /// outlives the manager.
    void picksTheFirstLanguageThatHasACatalogue()
    {
        QFETCH(QString, languages);
        QFETCH(QByteArray, text);
        ReceiverProcess receiver(QStringLiteral(LOGGING_DISPLAY_EXECUTABLE));
        receiver.setVariable(u"LANGUAGE"_s, languages);
        QVERIFY(receiver.run());
        QCOMPARE(receiver.exitCode(), 0);
        QCOMPARE(receiver.log(),
                 (QByteArrayList{connecting, stateConnecting, stateConnected, "debug|qml|" + text,
                                 "debug|qml|at the end null"}));
    }

    void announcesQmlDebuggingIfBuiltWithIt()
    {
        ReceiverProcess receiver;
        QVERIFY(receiver.start());
        QCOMPARE(receiver.announcesQmlDebugging(), bool(QML_DEBUG));
    }
};

QTEST_GUILESS_MAIN(TestStartup)
#include "tst_startup.moc"
