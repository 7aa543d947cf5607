#include "receivertest.h"

#include <QTest>

using namespace Qt::StringLiterals;
using EventLog::transcript;

Q_DECLARE_METATYPE(QCanBusFrame)

/// Simple commands: the senders, the dispatch and the configuration session.
class tst_p3 : public ReceiverTest
{
    Q_OBJECT

private slots:
    void commandSenderPacksItsFields_data();
    void commandSenderPacksItsFields();
    void responseSenderPacksItsFields_data();
    void responseSenderPacksItsFields();
    void eventSenderPacksItsFields_data();
    void eventSenderPacksItsFields();
    void sendersPassThePayloadOn();
    void sendersLeaveRefusalToTheLink();

    void commandsAreDispatchedByOperation_data();
    void commandsAreDispatchedByOperation();
    void secondDestinationIsServedAlike();
    void foreignCommandsAreNotServed_data();
    void foreignCommandsAreNotServed();
    void unknownOperationsAreNotAnswered_data();
    void unknownOperationsAreNotAnswered();
    void errorFrameIsAForeignCommand();

    void startConfigIsAnsweredAndShown();
    void startConfigWithExtraBytesIsAccepted();
    void startConfigWithoutHandshakeFails_data();
    void startConfigWithoutHandshakeFails();
    void startConfigDuringATransferLeavesTheDisplay();
    void startConfigBeforeTheFirstRecordIsShown();
    void startConfigMayBeRepeated();
    void endConfigurationIsAlwaysAccepted_data();
    void endConfigurationIsAlwaysAccepted();
    void sessionCommandsChangeNoState_data();
    void sessionCommandsChangeNoState();
    void responsesUseTheSlotOfTheCommand_data();
    void responsesUseTheSlotOfTheCommand();
    void errorFramesAreAnsweredInSlot0_data();
    void errorFramesAreAnsweredInSlot0();
};

// ---- Senders

void tst_p3::commandSenderPacksItsFields_data()
{
    QTest::addColumn<QList<quint32>>("fields");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("the service tool's start command")
        << QList<quint32>{24, 26, 0, 11, 0} << transcript(R"(
        debug |sendP3ResposesMessage: src:  24  dest:  26  slotNum:  0  interfaceId:  11  opId:  0 frameId:  "f1a02c0"|
        sent 0f1a02c0 ext []
        debug |writeFrame: Frame sent with ID: "f1a02c0"|
    )");
    QTest::newRow("every field") << QList<quint32>{1, 2, 3, 5, 33} << transcript(R"(
        debug |sendP3ResposesMessage: src:  1  dest:  2  slotNum:  3  interfaceId:  5  opId:  33 frameId:  "c221961"|
        sent 0c221961 ext []
        debug |writeFrame: Frame sent with ID: "c221961"|
    )");
    QTest::newRow("one too large for each field")
        << QList<quint32>{32, 32, 4, 16, 64} << transcript(R"(
        debug |sendP3ResposesMessage: src:  32  dest:  32  slotNum:  4  interfaceId:  16  opId:  64 frameId:  "c000000"|
        sent 0c000000 ext []
        debug |writeFrame: Frame sent with ID: "c000000"|
    )");
    QTest::newRow("operation 64 leaves the interface")
        << QList<quint32>{24, 26, 0, 11, 64} << transcript(R"(
        debug |sendP3ResposesMessage: src:  24  dest:  26  slotNum:  0  interfaceId:  11  opId:  64 frameId:  "f1a02c0"|
        sent 0f1a02c0 ext []
        debug |writeFrame: Frame sent with ID: "f1a02c0"|
    )");
    QTest::newRow("every bit") << QList<quint32>(5, 4294967295u) << transcript(R"(
        debug |sendP3ResposesMessage: src:  4294967295  dest:  4294967295  slotNum:  4294967295  interfaceId:  4294967295  opId:  4294967295 frameId:  "fff1bff"|
        sent 0fff1bff ext []
        debug |writeFrame: Frame sent with ID: "fff1bff"|
    )");
}

void tst_p3::commandSenderPacksItsFields()
{
    QFETCH(QList<quint32>, fields);
    QVERIFY(QMetaObject::invokeMethod(manager.get(), "sendP3CommandMessage",
                                      Q_ARG(quint32, fields[0]), Q_ARG(quint32, fields[1]),
                                      Q_ARG(quint32, fields[2]), Q_ARG(quint32, fields[3]),
                                      Q_ARG(quint32, fields[4]), Q_ARG(QByteArray, QByteArray())));
    QTEST(events(), "expected");
}

void tst_p3::responseSenderPacksItsFields_data()
{
    QTest::addColumn<QList<quint32>>("fields");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("success") << QList<quint32>{26, 24, 0, 0} << transcript(R"(
        debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  0  responseNum:  0 frameId:  "f584000"|
        sent 0f584000 ext []
        debug |writeFrame: Frame sent with ID: "f584000"|
    )");
    QTest::newRow("failure in slot 3") << QList<quint32>{26, 24, 3, 186} << transcript(R"(
        debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  3  responseNum:  186 frameId:  "f5858ba"|
        sent 0f5858ba ext []
        debug |writeFrame: Frame sent with ID: "f5858ba"|
    )");
    QTest::newRow("one too large for each field")
        << QList<quint32>{32, 32, 4, 1024} << transcript(R"(
        debug |sendP3ResposesMessage: src:  32  dest:  32  slotNum:  4  responseNum:  1024 frameId:  "c004000"|
        sent 0c004000 ext []
        debug |writeFrame: Frame sent with ID: "c004000"|
    )");
    QTest::newRow("every bit") << QList<quint32>(4, 4294967295u) << transcript(R"(
        debug |sendP3ResposesMessage: src:  4294967295  dest:  4294967295  slotNum:  4294967295  responseNum:  4294967295 frameId:  "fff5bff"|
        sent 0fff5bff ext []
        debug |writeFrame: Frame sent with ID: "fff5bff"|
    )");
}

void tst_p3::responseSenderPacksItsFields()
{
    QFETCH(QList<quint32>, fields);
    QVERIFY(QMetaObject::invokeMethod(manager.get(), "sendP3ResposesMessage",
                                      Q_ARG(quint32, fields[0]), Q_ARG(quint32, fields[1]),
                                      Q_ARG(quint32, fields[2]), Q_ARG(quint32, fields[3]),
                                      Q_ARG(QByteArray, QByteArray())));
    QTEST(events(), "expected");
}

void tst_p3::eventSenderPacksItsFields_data()
{
    QTest::addColumn<QList<quint32>>("fields");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("every bit of the number") << QList<quint32>{26, 24, 0x3FFF} << transcript(R"(
        debug |sendP3ResposesMessage: src:  26  dest:  24  eventNum:  16383 frameId:  "f583fff"|
        sent 0f583fff ext []
        debug |writeFrame: Frame sent with ID: "f583fff"|
    )");
    QTest::newRow("a number") << QList<quint32>{26, 24, 0x2401} << transcript(R"(
        debug |sendP3ResposesMessage: src:  26  dest:  24  eventNum:  9217 frameId:  "f582401"|
        sent 0f582401 ext []
        debug |writeFrame: Frame sent with ID: "f582401"|
    )");
    QTest::newRow("one too large for each field")
        << QList<quint32>{32, 32, 0x4000} << transcript(R"(
        debug |sendP3ResposesMessage: src:  32  dest:  32  eventNum:  16384 frameId:  "c000000"|
        sent 0c000000 ext []
        debug |writeFrame: Frame sent with ID: "c000000"|
    )");
    QTest::newRow("every bit") << QList<quint32>(3, 4294967295u) << transcript(R"(
        debug |sendP3ResposesMessage: src:  4294967295  dest:  4294967295  eventNum:  4294967295 frameId:  "fff3fff"|
        sent 0fff3fff ext []
        debug |writeFrame: Frame sent with ID: "fff3fff"|
    )");
}

void tst_p3::eventSenderPacksItsFields()
{
    QFETCH(QList<quint32>, fields);
    QVERIFY(QMetaObject::invokeMethod(manager.get(), "sendP3EventMessage",
                                      Q_ARG(quint32, fields[0]), Q_ARG(quint32, fields[1]),
                                      Q_ARG(quint32, fields[2]), Q_ARG(QByteArray, QByteArray())));
    QTEST(events(), "expected");
}

void tst_p3::sendersPassThePayloadOn()
{
    const QByteArray payload = QByteArray::fromHex("00a5ff5a0d0a2000");
    const quint32 none = 0;
    QVERIFY(QMetaObject::invokeMethod(manager.get(), "sendP3CommandMessage", Q_ARG(quint32, none),
                                      Q_ARG(quint32, none), Q_ARG(quint32, none),
                                      Q_ARG(quint32, none), Q_ARG(quint32, none),
                                      Q_ARG(QByteArray, payload)));
    QVERIFY(QMetaObject::invokeMethod(manager.get(), "sendP3ResposesMessage", Q_ARG(quint32, none),
                                      Q_ARG(quint32, none), Q_ARG(quint32, none),
                                      Q_ARG(quint32, none), Q_ARG(QByteArray, payload)));
    QVERIFY(QMetaObject::invokeMethod(manager.get(), "sendP3EventMessage", Q_ARG(quint32, none),
                                      Q_ARG(quint32, none), Q_ARG(quint32, none),
                                      Q_ARG(QByteArray, payload)));
    QCOMPARE(eventsButDebug(), transcript(R"(
        sent 0c000000 ext [00 a5 ff 5a 0d 0a 20 00]
        sent 0c004000 ext [00 a5 ff 5a 0d 0a 20 00]
        sent 0c000000 ext [00 a5 ff 5a 0d 0a 20 00]
    )"));
}

void tst_p3::sendersLeaveRefusalToTheLink()
{
    FakeCanDevice::behaviour.writeError = u"full"_s;
    call("processP3StartConfigResponse", frame(0x0F1A02C0, "a55a"));
    QCOMPARE(events(), transcript(R"(
        display "Connected to Shipwright" on "Waiting for transfer" on 0 on
        debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  0  responseNum:  0 frameId:  "f584000"|
        warning |writeFrame: Failed to write frame: "full"|
    )"));
}

// ---- Dispatch

void tst_p3::commandsAreDispatchedByOperation_data()
{
    QTest::addColumn<QCanBusFrame>("command");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("start of configuration") << frame(0x0F1A02C0) << transcript(R"(
        debug |processP3CanCommand: Received P3 Frame srcID:  24  destID:  26  interfaceID:  11 opID:  0|
        debug |processP3CanCommand: Dockhand received frame on the Shipwright interface|
        info |processP3CanCommand: Start Config Writing Command Received|
        debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  0  responseNum:  186 frameId:  "f5840ba"|
        sent 0f5840ba ext []
        debug |writeFrame: Frame sent with ID: "f5840ba"|
    )");
    QTest::newRow("date and time") << frame(0x0F1A02C1, "01") << transcript(R"(
        debug |processP3CanCommand: Received P3 Frame srcID:  24  destID:  26  interfaceID:  11 opID:  1|
        debug |processP3CanCommand: Dockhand received frame on the Shipwright interface|
        info |processP3CanCommand: Set Date Time Command Received|
        debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  0  responseNum:  186 frameId:  "f5840ba"|
        sent 0f5840ba ext [01]
        debug |writeFrame: Frame sent with ID: "f5840ba"|
    )");
    QTest::newRow("serial number") << frame(0x0F1A02C2, "0c") << transcript(R"(
        debug |processP3CanCommand: Received P3 Frame srcID:  24  destID:  26  interfaceID:  11 opID:  2|
        debug |processP3CanCommand: Dockhand received frame on the Shipwright interface|
        info |processP3CanCommand: Set Serial Command Received|
        warning |processP3SetSerialResponse: Not enough data to parse serial string:  1|
        debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  0  responseNum:  186 frameId:  "f5840ba"|
        sent 0f5840ba ext []
        debug |writeFrame: Frame sent with ID: "f5840ba"|
    )");
    QTest::newRow("rest of the serial number") << frame(0x0F1A02C3) << transcript(R"(
        debug |processP3CanCommand: Received P3 Frame srcID:  24  destID:  26  interfaceID:  11 opID:  3|
        debug |processP3CanCommand: Dockhand received frame on the Shipwright interface|
        info |processP3CanCommand: Set Serial Ext Command Received|
        warning |processP3SetSerialExtResponse: Something has gone wrong, I have already received the full serial. I should not get this:  0|
        warning |processP3SetSerialExtResponse: Not enough data to parse serial string:  0|
        debug |processP3SetSerialExtResponse: Successfully wrote serial number to storage: "NotReceived"|
        display "Received Serial Command" on "NotReceived" on 0 off
        debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  0  responseNum:  0 frameId:  "f584000"|
        sent 0f584000 ext []
        debug |writeFrame: Frame sent with ID: "f584000"|
    )");
    QTest::newRow("bits 15, 13 and 10 set, which mean nothing")
        << frame(0x0F1AA6C4) << transcript(R"(
        debug |processP3CanCommand: Received P3 Frame srcID:  24  destID:  26  interfaceID:  11 opID:  4|
        debug |processP3CanCommand: Dockhand received frame on the Shipwright interface|
        info |processP3CanCommand: End Configuration Command Received|
        display "Configuration Complete" on "Empty" off 1 on
        debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  0  responseNum:  0 frameId:  "f584000"|
        sent 0f584000 ext []
        debug |writeFrame: Frame sent with ID: "f584000"|
    )");
    QTest::newRow("end of configuration") << frame(0x0F1A02C4) << transcript(R"(
        debug |processP3CanCommand: Received P3 Frame srcID:  24  destID:  26  interfaceID:  11 opID:  4|
        debug |processP3CanCommand: Dockhand received frame on the Shipwright interface|
        info |processP3CanCommand: End Configuration Command Received|
        display "Configuration Complete" on "Empty" off 1 on
        debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  0  responseNum:  0 frameId:  "f584000"|
        sent 0f584000 ext []
        debug |writeFrame: Frame sent with ID: "f584000"|
    )");
}

void tst_p3::commandsAreDispatchedByOperation()
{
    QFETCH(QCanBusFrame, command);
    call("processP3CanCommand", command);
    QTEST(events(), "expected");
}

void tst_p3::secondDestinationIsServedAlike()
{
    call("processP3CanCommand", frame(0x0F0E02C0, "a55a"));
    QCOMPARE(events(), transcript(R"(
        debug |processP3CanCommand: Received P3 Frame srcID:  24  destID:  14  interfaceID:  11 opID:  0|
        debug |processP3CanCommand: Dockhand received frame on the Shipwright interface|
        info |processP3CanCommand: Start Config Writing Command Received|
        display "Connected to Shipwright" on "Waiting for transfer" on 0 on
        debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  0  responseNum:  0 frameId:  "f584000"|
        sent 0f584000 ext [5a a5]
        debug |writeFrame: Frame sent with ID: "f584000"|
    )"));
}

void tst_p3::foreignCommandsAreNotServed_data()
{
    QTest::addColumn<quint32>("identifier");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("from another source") << 0x0EFA02C0u << transcript(R"(
        debug |processP3CanCommand: Received P3 Frame srcID:  23  destID:  26  interfaceID:  11 opID:  0|
        warning |processP3CanCommand: Frame received by Shipwright on unhandled Interface ID: "1a"|
    )");
    QTest::newRow("on another interface") << 0x0F1A0280u << transcript(R"(
        debug |processP3CanCommand: Received P3 Frame srcID:  24  destID:  26  interfaceID:  10 opID:  0|
        warning |processP3CanCommand: Frame received by Shipwright on unhandled Interface ID: "1a"|
    )");
    QTest::newRow("to another destination") << 0x0F1902C0u << transcript(R"(
        debug |processP3CanCommand: Received P3 Frame srcID:  24  destID:  25  interfaceID:  11 opID:  0|
        warning |processP3CanCommand: Frame received by Shipwright on unhandled Interface ID: "19"|
    )");
    QTest::newRow("to the second destination from another source") << 0x0EEE02C4u << transcript(R"(
        debug |processP3CanCommand: Received P3 Frame srcID:  23  destID:  14  interfaceID:  11 opID:  4|
        warning |processP3CanCommand: Frame received by Shipwright on unhandled Interface ID: "e"|
    )");
    QTest::newRow("to the second destination on another interface") << 0x0F0E0280u << transcript(R"(
        debug |processP3CanCommand: Received P3 Frame srcID:  24  destID:  14  interfaceID:  10 opID:  0|
        warning |processP3CanCommand: Frame received by Shipwright on unhandled Interface ID: "e"|
    )");
    QTest::newRow("all of it") << 0x0FFF03FFu << transcript(R"(
        debug |processP3CanCommand: Received P3 Frame srcID:  31  destID:  31  interfaceID:  15 opID:  63|
        warning |processP3CanCommand: Frame received by Shipwright on unhandled Interface ID: "1f"|
    )");
}

void tst_p3::foreignCommandsAreNotServed()
{
    QFETCH(quint32, identifier);
    call("processP3CanCommand", frame(identifier, "a55a"));
    QTEST(events(), "expected");
}

void tst_p3::unknownOperationsAreNotAnswered_data()
{
    QTest::addColumn<quint32>("operation");
    QTest::addColumn<QString>("number");

    const QStringList numbers = u"5 6 7 8 9 a b c d e f "
                                "10 11 12 13 14 15 16 17 18 19 1a 1b 1c 1d 1e 1f "
                                "20 21 22 23 24 25 26 27 28 29 2a 2b 2c 2d 2e 2f "
                                "30 31 32 33 34 35 36 37 38 39 3a 3b 3c 3d 3e 3f"_s.split(u' ');
    quint32 operation = 5;
    for (const QString &number : numbers) {
        QTest::addRow("%u", operation) << operation << number;
        ++operation;
    }
    QCOMPARE(operation, 64u);
}

void tst_p3::unknownOperationsAreNotAnswered()
{
    QFETCH(quint32, operation);
    QFETCH(QString, number);
    call("processP3CanCommand", frame(0x0F1A02C0 + operation, "a55a"));
    QStringList expected = transcript(R"(
        debug |processP3CanCommand: Dockhand received frame on the Shipwright interface|
    )");
    expected.prepend(u"debug |processP3CanCommand: Received P3 Frame srcID:  24  destID:  26  "
                     "interfaceID:  11 opID:  %1|"_s.arg(operation));
    expected.append(
        u"warning |processP3CanCommand: Simple Op ID received that is unknown:  \"%1\"|"_s.arg(
            number));
    QCOMPARE(events(), expected);
}

void tst_p3::errorFrameIsAForeignCommand()
{
    call("processP3CanCommand", errorFrame());
    QCOMPARE(events(), transcript(R"(
        debug |processP3CanCommand: Received P3 Frame srcID:  0  destID:  0  interfaceID:  0 opID:  0|
        warning |processP3CanCommand: Frame received by Shipwright on unhandled Interface ID: "0"|
    )"));
}

// ---- Configuration session

void tst_p3::startConfigIsAnsweredAndShown()
{
    call("processP3StartConfigResponse", frame(0x0F1A02C0, "a55a"));
    QCOMPARE(events(), transcript(R"(
        display "Connected to Shipwright" on "Waiting for transfer" on 0 on
        debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  0  responseNum:  0 frameId:  "f584000"|
        sent 0f584000 ext [5a a5]
        debug |writeFrame: Frame sent with ID: "f584000"|
    )"));
}

void tst_p3::startConfigWithExtraBytesIsAccepted()
{
    call("processP3StartConfigResponse", frame(0x0F1A02C0, "a55a0011"));
    QCOMPARE(eventsButDebug(), transcript(R"(
        display "Connected to Shipwright" on "Waiting for transfer" on 0 on
        sent 0f584000 ext [5a a5]
    )"));
}

void tst_p3::startConfigWithoutHandshakeFails_data()
{
    QTest::addColumn<QByteArray>("payload");

    QTest::newRow("half of it") << QByteArray("a5");
    QTest::newRow("another first byte") << QByteArray("a45a");
    QTest::newRow("another second byte") << QByteArray("a55b");
    QTest::newRow("empty") << QByteArray("");
    QTest::newRow("the answer") << QByteArray("5aa5");
    QTest::newRow("later in the payload") << QByteArray("00a55a");
    QTest::newRow("its text") << QByteArray("41353541");
}

void tst_p3::startConfigWithoutHandshakeFails()
{
    QFETCH(QByteArray, payload);
    call("processP3StartConfigResponse", frame(0x0F1A02C0, payload.constData()));
    QCOMPARE(events(), transcript(R"(
        debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  0  responseNum:  186 frameId:  "f5840ba"|
        sent 0f5840ba ext []
        debug |writeFrame: Frame sent with ID: "f5840ba"|
    )"));
}

void tst_p3::startConfigDuringATransferLeavesTheDisplay()
{
    session().transferInProgress = true;
    call("processP3StartConfigResponse", frame(0x0F1A02C0, "a55a"));
    QCOMPARE(eventsButDebug(), transcript("sent 0f584000 ext [5a a5]"));
    QVERIFY(session().transferInProgress);
}

void tst_p3::startConfigBeforeTheFirstRecordIsShown()
{
    receive({frame(0x1B1A1000, "0208000001000000")});
    QVERIFY(session().outputFile.isOpen());
    events();
    call("processP3StartConfigResponse", frame(0x0F1A02C0, "a55a"));
    QCOMPARE(eventsButDebug(), transcript(R"(
        display "Connected to Shipwright" on "Waiting for transfer" on 0 on
        sent 0f584000 ext [5a a5]
    )"));
}

void tst_p3::startConfigMayBeRepeated()
{
    call("processP3EndConfigurationResponse", frame(0x0F1A02C4));
    call("processP3StartConfigResponse", frame(0x0F1A02C0, "a55a"));
    call("processP3StartConfigResponse", frame(0x0F1A02C0, "a55a"));
    QCOMPARE(eventsButDebug(), transcript(R"(
        display "Configuration Complete" on "Empty" off 1 on
        sent 0f584000 ext []
        display "Connected to Shipwright" on "Waiting for transfer" on 0 on
        sent 0f584000 ext [5a a5]
        display "Connected to Shipwright" on "Waiting for transfer" on 0 on
        sent 0f584000 ext [5a a5]
    )"));
}

void tst_p3::endConfigurationIsAlwaysAccepted_data()
{
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<bool>("transferInProgress");

    QTest::newRow("empty") << QByteArray("") << false;
    QTest::newRow("any payload") << QByteArray("0102030405060708") << false;
    QTest::newRow("during a transfer") << QByteArray("") << true;
}

void tst_p3::endConfigurationIsAlwaysAccepted()
{
    QFETCH(QByteArray, payload);
    QFETCH(bool, transferInProgress);
    session().transferInProgress = transferInProgress;
    call("processP3EndConfigurationResponse", frame(0x0F1A02C4, payload.constData()));
    QCOMPARE(events(), transcript(R"(
        display "Configuration Complete" on "Empty" off 1 on
        debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  0  responseNum:  0 frameId:  "f584000"|
        sent 0f584000 ext []
        debug |writeFrame: Frame sent with ID: "f584000"|
    )"));
    QCOMPARE(session().transferInProgress, transferInProgress);
}

void tst_p3::sessionCommandsChangeNoState_data()
{
    QTest::addColumn<QCanBusFrame>("command");
    QTest::addColumn<QString>("sent");

    QTest::newRow("start") << frame(0x0F1A02C0, "a55a") << u"sent 0f584000 ext [5a a5]"_s;
    QTest::newRow("start without handshake") << frame(0x0F1A02C0) << u"sent 0f5840ba ext []"_s;
    QTest::newRow("end") << frame(0x0F1A02C4) << u"sent 0f584000 ext []"_s;
}

void tst_p3::sessionCommandsChangeNoState()
{
    QFETCH(QCanBusFrame, command);
    QFETCH(QString, sent);
    beginTransfer();
    const QStringList before = state();
    receive({command});
    QCOMPARE(sentFrames(), QStringList{sent});
    QCOMPARE(state(), before);
}

void tst_p3::responsesUseTheSlotOfTheCommand_data()
{
    QTest::addColumn<QByteArray>("handler");
    QTest::addColumn<QCanBusFrame>("command");
    QTest::addColumn<QString>("sent");

    QTest::newRow("start, slot 1") << QByteArray("processP3StartConfigResponse")
                                   << frame(0x0F1A0AC0, "a55a") << u"sent 0f584800 ext [5a a5]"_s;
    QTest::newRow("start, slot 2") << QByteArray("processP3StartConfigResponse")
                                   << frame(0x0F1A12C0, "a55a") << u"sent 0f585000 ext [5a a5]"_s;
    QTest::newRow("start, slot 3") << QByteArray("processP3StartConfigResponse")
                                   << frame(0x0F1A1AC0, "a55a") << u"sent 0f585800 ext [5a a5]"_s;
    QTest::newRow("start failed, slot 3") << QByteArray("processP3StartConfigResponse")
                                          << frame(0x0F1A1AC0) << u"sent 0f5858ba ext []"_s;
    QTest::newRow("date and time, slot 1")
        << QByteArray("processP3SetDateTimeResponse") << frame(0x0F1A0AC1, "18020e0a0b0c")
        << u"sent 0f584800 ext [18 02 0e 0a 0b 0c]"_s;
    QTest::newRow("date and time failed, slot 2") << QByteArray("processP3SetDateTimeResponse")
                                                  << frame(0x0F1A12C1) << u"sent 0f5850ba ext []"_s;
    QTest::newRow("serial, slot 2") << QByteArray("processP3SetSerialResponse")
                                    << frame(0x0F1A12C2, "0141") << u"sent 0f585000 ext []"_s;
    QTest::newRow("serial failed, slot 1")
        << QByteArray("processP3SetSerialResponse") << frame(0x0F1A0AC2, "0c41")
        << u"sent 0f5848ba ext []"_s;
    QTest::newRow("rest of the serial, slot 3")
        << QByteArray("processP3SetSerialExtResponse") << frame(0x0F1A1AC3, "41")
        << u"sent 0f585800 ext []"_s;
    QTest::newRow("end, slot 1") << QByteArray("processP3EndConfigurationResponse")
                                 << frame(0x0F1A0AC4) << u"sent 0f584800 ext []"_s;
}

void tst_p3::responsesUseTheSlotOfTheCommand()
{
    QFETCH(QByteArray, handler);
    QFETCH(QCanBusFrame, command);
    QFETCH(QString, sent);
    call(handler.constData(), command);
    QCOMPARE(sentFrames(), QStringList{sent});
}

void tst_p3::errorFramesAreAnsweredInSlot0_data()
{
    QTest::addColumn<QByteArray>("handler");
    QTest::addColumn<QString>("sent");

    QTest::newRow("start") << QByteArray("processP3StartConfigResponse")
                           << u"sent 0f5840ba ext []"_s;
    QTest::newRow("date and time")
        << QByteArray("processP3SetDateTimeResponse") << u"sent 0f5840ba ext []"_s;
    QTest::newRow("serial") << QByteArray("processP3SetSerialResponse")
                            << u"sent 0f584000 ext []"_s;
    QTest::newRow("rest of the serial")
        << QByteArray("processP3SetSerialExtResponse") << u"sent 0f584000 ext []"_s;
    QTest::newRow("end") << QByteArray("processP3EndConfigurationResponse")
                         << u"sent 0f584000 ext []"_s;
}

void tst_p3::errorFramesAreAnsweredInSlot0()
{
    QFETCH(QByteArray, handler);
    QFETCH(QString, sent);
    QCanBusFrame error = errorFrame();
    error.setFrameId(0x0F1A1AC0);
    call(handler.constData(), error);
    QCOMPARE(sentFrames(), QStringList{sent});
}

QTEST_GUILESS_MAIN(tst_p3)
#include "tst_p3.moc"
