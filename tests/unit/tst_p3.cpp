#include "receivertest.h"

#include <QTest>

using namespace Qt::StringLiterals;

/// Simple commands: the senders, the dispatch and the configuration session.
class tst_p3 : public ReceiverTest
{
    Q_OBJECT

private slots:
    void commandSenderPacksItsFields()
    {
        play(Everything, uR"(
            send sendP3CommandMessage 24 26 0 11 0 #
            debug |sendP3ResposesMessage: src:  24  dest:  26  slotNum:  0  interfaceId:  11  opId:  0 frameId:  "f1a02c0"|
            sent 0F1A02C0#
            debug |writeFrame: Frame sent with ID: "f1a02c0"|
            send sendP3CommandMessage 1 2 3 5 33 #
            debug |sendP3ResposesMessage: src:  1  dest:  2  slotNum:  3  interfaceId:  5  opId:  33 frameId:  "c221961"|
            sent 0C221961#
            debug |writeFrame: Frame sent with ID: "c221961"|
            # One too large for each field.
            send sendP3CommandMessage 32 32 4 16 64 #
            debug |sendP3ResposesMessage: src:  32  dest:  32  slotNum:  4  interfaceId:  16  opId:  64 frameId:  "c000000"|
            sent 0C000000#
            debug |writeFrame: Frame sent with ID: "c000000"|
            send sendP3CommandMessage 24 26 0 11 64 #
            debug |sendP3ResposesMessage: src:  24  dest:  26  slotNum:  0  interfaceId:  11  opId:  64 frameId:  "f1a02c0"|
            sent 0F1A02C0#
            debug |writeFrame: Frame sent with ID: "f1a02c0"|
            # Every bit.
            send sendP3CommandMessage 0xFFFFFFFF 0xFFFFFFFF 0xFFFFFFFF 0xFFFFFFFF 0xFFFFFFFF #
            debug |sendP3ResposesMessage: src:  4294967295  dest:  4294967295  slotNum:  4294967295  interfaceId:  4294967295  opId:  4294967295 frameId:  "fff1bff"|
            sent 0FFF1BFF#
            debug |writeFrame: Frame sent with ID: "fff1bff"|
        )"_s);
    }

    void responseSenderPacksItsFields()
    {
        play(Everything, uR"(
            send sendP3ResposesMessage 26 24 0 0 #
            debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  0  responseNum:  0 frameId:  "f584000"|
            sent 0F584000#
            debug |writeFrame: Frame sent with ID: "f584000"|
            send sendP3ResposesMessage 26 24 3 186 #
            debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  3  responseNum:  186 frameId:  "f5858ba"|
            sent 0F5858BA#
            debug |writeFrame: Frame sent with ID: "f5858ba"|
            # One too large for each field.
            send sendP3ResposesMessage 32 32 4 1024 #
            debug |sendP3ResposesMessage: src:  32  dest:  32  slotNum:  4  responseNum:  1024 frameId:  "c004000"|
            sent 0C004000#
            debug |writeFrame: Frame sent with ID: "c004000"|
            # Every bit.
            send sendP3ResposesMessage 0xFFFFFFFF 0xFFFFFFFF 0xFFFFFFFF 0xFFFFFFFF #
            debug |sendP3ResposesMessage: src:  4294967295  dest:  4294967295  slotNum:  4294967295  responseNum:  4294967295 frameId:  "fff5bff"|
            sent 0FFF5BFF#
            debug |writeFrame: Frame sent with ID: "fff5bff"|
        )"_s);
    }

    void eventSenderPacksItsFields()
    {
        play(Everything, uR"(
            send sendP3EventMessage 26 24 0x3FFF #
            debug |sendP3ResposesMessage: src:  26  dest:  24  eventNum:  16383 frameId:  "f583fff"|
            sent 0F583FFF#
            debug |writeFrame: Frame sent with ID: "f583fff"|
            send sendP3EventMessage 26 24 0x2401 #
            debug |sendP3ResposesMessage: src:  26  dest:  24  eventNum:  9217 frameId:  "f582401"|
            sent 0F582401#
            debug |writeFrame: Frame sent with ID: "f582401"|
            # One too large for each field.
            send sendP3EventMessage 32 32 0x4000 #
            debug |sendP3ResposesMessage: src:  32  dest:  32  eventNum:  16384 frameId:  "c000000"|
            sent 0C000000#
            debug |writeFrame: Frame sent with ID: "c000000"|
            # Every bit.
            send sendP3EventMessage 0xFFFFFFFF 0xFFFFFFFF 0xFFFFFFFF #
            debug |sendP3ResposesMessage: src:  4294967295  dest:  4294967295  eventNum:  4294967295 frameId:  "fff3fff"|
            sent 0FFF3FFF#
            debug |writeFrame: Frame sent with ID: "fff3fff"|
        )"_s);
    }

    /// Of any length: a frame that the bus cannot carry is the link's to refuse.
    void sendersPassThePayloadOn()
    {
        play(uR"(
            send sendP3CommandMessage 0 0 0 0 0 #00A5FF5A0D0A2000
            sent 0C000000#00A5FF5A0D0A2000
            send sendP3ResposesMessage 0 0 0 0 #00A5FF5A0D0A2000
            sent 0C004000#00A5FF5A0D0A2000
            send sendP3EventMessage 0 0 0 #00A5FF5A0D0A2000
            sent 0C000000#00A5FF5A0D0A2000
            send sendP3CommandMessage 0 0 0 0 0 #0102030405060708090A0B0C
            sent 0C000000#0102030405060708090A0B0C fd
            send sendP3ResposesMessage 0 0 0 0 #0102030405060708090A0B0C
            sent 0C004000#0102030405060708090A0B0C fd
            send sendP3EventMessage 0 0 0 #0102030405060708090A0B0C
            sent 0C000000#0102030405060708090A0B0C fd
        )"_s);
    }

    void sendersLeaveRefusalToTheLink()
    {
        FakeCanDevice::behaviour.writeError = u"full"_s;
        play(Everything, uR"(
            call processP3StartConfigResponse 0F1A02C0#A55A
            display "Connected to Shipwright" on "Waiting for transfer" on 0 on
            debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  0  responseNum:  0 frameId:  "f584000"|
            warning |writeFrame: Failed to write frame: "full"|
        )"_s);
    }

    void commandsAreDispatchedByOperation()
    {
        play(Everything, uR"(
            call processP3CanCommand 0F1A02C0#
            debug |processP3CanCommand: Received P3 Frame srcID:  24  destID:  26  interfaceID:  11 opID:  0|
            debug |processP3CanCommand: Dockhand received frame on the Shipwright interface|
            info |processP3CanCommand: Start Config Writing Command Received|
            debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  0  responseNum:  186 frameId:  "f5840ba"|
            sent 0F5840BA#
            debug |writeFrame: Frame sent with ID: "f5840ba"|

            call processP3CanCommand 0F1A02C1#01
            debug |processP3CanCommand: Received P3 Frame srcID:  24  destID:  26  interfaceID:  11 opID:  1|
            debug |processP3CanCommand: Dockhand received frame on the Shipwright interface|
            info |processP3CanCommand: Set Date Time Command Received|
            debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  0  responseNum:  186 frameId:  "f5840ba"|
            sent 0F5840BA#01
            debug |writeFrame: Frame sent with ID: "f5840ba"|

            call processP3CanCommand 0F1A02C3#
            debug |processP3CanCommand: Received P3 Frame srcID:  24  destID:  26  interfaceID:  11 opID:  3|
            debug |processP3CanCommand: Dockhand received frame on the Shipwright interface|
            info |processP3CanCommand: Set Serial Ext Command Received|
            warning |processP3SetSerialExtResponse: Something has gone wrong, I have already received the full serial. I should not get this:  0|
            warning |processP3SetSerialExtResponse: Not enough data to parse serial string:  0|
            debug |processP3SetSerialExtResponse: Successfully wrote serial number to storage: "NotReceived"|
            display "Received Serial Command" on "NotReceived" on 0 off
            debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  0  responseNum:  0 frameId:  "f584000"|
            sent 0F584000#
            debug |writeFrame: Frame sent with ID: "f584000"|

            call processP3CanCommand 0F1A02C2#0C
            debug |processP3CanCommand: Received P3 Frame srcID:  24  destID:  26  interfaceID:  11 opID:  2|
            debug |processP3CanCommand: Dockhand received frame on the Shipwright interface|
            info |processP3CanCommand: Set Serial Command Received|
            warning |processP3SetSerialResponse: Not enough data to parse serial string:  1|
            debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  0  responseNum:  186 frameId:  "f5840ba"|
            sent 0F5840BA#
            debug |writeFrame: Frame sent with ID: "f5840ba"|

            call processP3CanCommand 0F1A02C4#
            debug |processP3CanCommand: Received P3 Frame srcID:  24  destID:  26  interfaceID:  11 opID:  4|
            debug |processP3CanCommand: Dockhand received frame on the Shipwright interface|
            info |processP3CanCommand: End Configuration Command Received|
            display "Configuration Complete" on "Empty" off 1 on
            debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  0  responseNum:  0 frameId:  "f584000"|
            sent 0F584000#
            debug |writeFrame: Frame sent with ID: "f584000"|
        )"_s);
    }

    /// Bits 15, 13 and 10 of a command mean nothing.
    void bitsWithoutMeaningAreNotLookedAt()
    {
        play(uR"(
            receive 0F1AA6C4#
            display "Configuration Complete" on "Empty" off 1 on
            sent 0F584000#
        )"_s);
    }

    void secondDestinationIsServedAlike()
    {
        play(Everything, uR"(
            call processP3CanCommand 0F0E02C0#A55A
            debug |processP3CanCommand: Received P3 Frame srcID:  24  destID:  14  interfaceID:  11 opID:  0|
            debug |processP3CanCommand: Dockhand received frame on the Shipwright interface|
            info |processP3CanCommand: Start Config Writing Command Received|
            display "Connected to Shipwright" on "Waiting for transfer" on 0 on
            debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  0  responseNum:  0 frameId:  "f584000"|
            sent 0F584000#5AA5
            debug |writeFrame: Frame sent with ID: "f584000"|
        )"_s);
    }

    /// The number in the warning is the destination, whatever is wrong.
    void foreignCommandsAreNotServed()
    {
        play(Everything, uR"(
            call processP3CanCommand 0EFA02C0#A55A
            debug |processP3CanCommand: Received P3 Frame srcID:  23  destID:  26  interfaceID:  11 opID:  0|
            warning |processP3CanCommand: Frame received by Shipwright on unhandled Interface ID: "1a"|
            call processP3CanCommand 0F1A0280#A55A
            debug |processP3CanCommand: Received P3 Frame srcID:  24  destID:  26  interfaceID:  10 opID:  0|
            warning |processP3CanCommand: Frame received by Shipwright on unhandled Interface ID: "1a"|
            call processP3CanCommand 0F1902C0#A55A
            debug |processP3CanCommand: Received P3 Frame srcID:  24  destID:  25  interfaceID:  11 opID:  0|
            warning |processP3CanCommand: Frame received by Shipwright on unhandled Interface ID: "19"|
            call processP3CanCommand 0EEE02C4#A55A
            debug |processP3CanCommand: Received P3 Frame srcID:  23  destID:  14  interfaceID:  11 opID:  4|
            warning |processP3CanCommand: Frame received by Shipwright on unhandled Interface ID: "e"|
            call processP3CanCommand 0F0E0280#A55A
            debug |processP3CanCommand: Received P3 Frame srcID:  24  destID:  14  interfaceID:  10 opID:  0|
            warning |processP3CanCommand: Frame received by Shipwright on unhandled Interface ID: "e"|
            call processP3CanCommand 0FFF03FF#A55A
            debug |processP3CanCommand: Received P3 Frame srcID:  31  destID:  31  interfaceID:  15 opID:  63|
            warning |processP3CanCommand: Frame received by Shipwright on unhandled Interface ID: "1f"|
            call processP3CanCommand 0F1A02C0#E
            debug |processP3CanCommand: Received P3 Frame srcID:  0  destID:  0  interfaceID:  0 opID:  0|
            warning |processP3CanCommand: Frame received by Shipwright on unhandled Interface ID: "0"|
        )"_s);
    }

    void unknownOperationsAreNotAnswered()
    {
        for (int operation = 5; operation < 64; ++operation) {
            play(Everything,
                 uR"(
                call processP3CanCommand %1#A55A
                debug |processP3CanCommand: Received P3 Frame srcID:  24  destID:  26  interfaceID:  11 opID:  %2|
                debug |processP3CanCommand: Dockhand received frame on the Shipwright interface|
                warning |processP3CanCommand: Simple Op ID received that is unknown:  "%3"|
                changed nothing
            )"_s.arg(0x0F1A02C0 + operation, 8, 16, QChar(u'0'))
                     .arg(operation)
                     .arg(operation, 0, 16));
        }
    }

    void startConfigIsAnsweredAndShown()
    {
        play(Handlers, uR"(
            receive 0F1A02C0#A55A
            display "Connected to Shipwright" on "Waiting for transfer" on 0 on
            sent 0F584000#5AA5
            changed nothing
            # More bytes are ignored, and the command may be repeated, before and after its end.
            receive 0F1A02C0#A55A0011
            display "Connected to Shipwright" on "Waiting for transfer" on 0 on
            sent 0F584000#5AA5
            receive 0F1A02C4#
            display "Configuration Complete" on "Empty" off 1 on
            sent 0F584000#
            receive 0F1A02C0#A55A
            display "Connected to Shipwright" on "Waiting for transfer" on 0 on
            sent 0F584000#5AA5
        )"_s);
    }

    void startConfigWithoutHandshakeFails()
    {
        for (const QString &payload :
             {u"A5"_s, u"A45A"_s, u"A55B"_s, QString(), u"5AA5"_s, u"00A55A"_s, u"41353541"_s}) {
            play(Handlers, uR"(
                receive 0F1A02C0#%1
                sent 0F5840BA#
                changed nothing
            )"_s.arg(payload));
        }
    }

    void startConfigDuringATransferLeavesTheDisplay()
    {
        play(uR"(
            given 1B1A1000#0208000002000000
            state outputFileMode 2, transferInProgress false
            # Before the first record it is shown.
            receive 0F1A02C0#A55A
            display "Connected to Shipwright" on "Waiting for transfer" on 0 on
            sent 0F584000#5AA5
            given 1B1A2000#0101000000
            state outputFileMode 2, transferInProgress true
            receive 0F1A02C0#A55A
            sent 0F584000#5AA5
            changed nothing
            receive 0F1A02C0#
            sent 0F5840BA#
            changed nothing
            given 1B1AF000#4142434445464748 1B1A3000#1CB6DC68
            receive 0F1A02C0#A55A
            sent 0F584000#5AA5
            # Nor is the file the sign: it need not have been opened.
            restart
            given 1B1A2000#0101000000
            state outputFileMode 0, transferInProgress true
            receive 0F1A02C0#A55A
            sent 0F584000#5AA5
            given 1B1A4000#00000000
            receive 0F1A02C0#A55A
            display "Connected to Shipwright" on "Waiting for transfer" on 0 on
            sent 0F584000#5AA5
        )"_s);
    }

    void endConfigurationIsAlwaysAccepted()
    {
        play(Handlers, uR"(
            receive 0F1A02C4#
            display "Configuration Complete" on "Empty" off 1 on
            sent 0F584000#
            changed nothing
            receive 0F1A02C4#0102030405060708
            display "Configuration Complete" on "Empty" off 1 on
            sent 0F584000#
            given 1B1A1000#0208000002000000 1B1A2000#0101000000
            receive 0F1A02C4#
            display "Configuration Complete" on "Empty" off 1 on
            sent 0F584000#
            changed nothing
        )"_s);
    }

    void responsesUseTheSlotOfTheCommand()
    {
        play(uR"(
            receive 0F1A0AC0#A55A
            display "Connected to Shipwright" on "Waiting for transfer" on 0 on
            sent 0F584800#5AA5
            receive 0F1A12C0#A55A
            display "Connected to Shipwright" on "Waiting for transfer" on 0 on
            sent 0F585000#5AA5
            receive 0F1A1AC0#
            sent 0F5858BA#
            receive 0F1A0AC1#18020E0A0B0C
            display "Received Date Time Command" on "dateString" on 0 off
            sent 0F584800#18020E0A0B0C
            receive 0F1A12C1#
            sent 0F5850BA#
            receive 0F1A12C2#0141
            display "Received Serial Command" on "A" on 0 off
            sent 0F585000#
            receive 0F1A0AC2#0C41
            warning |processP3SetSerialResponse: Not enough data to parse serial string:  2|
            sent 0F5848BA#
            receive 0F1A1AC3#4142434445
            display "Received Serial Command" on "AABCDE" on 0 off
            sent 0F585800#
            receive 0F1A0AC4#
            display "Configuration Complete" on "Empty" off 1 on
            sent 0F584800#
        )"_s);
    }

    void errorFramesAreAnsweredInSlot0()
    {
        play(uR"(
            call processP3StartConfigResponse 0F1A1AC0#E
            sent 0F5840BA#
            call processP3SetDateTimeResponse 0F1A1AC0#E
            sent 0F5840BA#
            call processP3SetSerialResponse 0F1A1AC0#E
            warning |processP3SetSerialResponse: Not enough data to parse serial string:  0|
            display "Received Serial Command" on "NotReceived" on 0 off
            sent 0F584000#
            call processP3SetSerialExtResponse 0F1A1AC0#E
            warning |processP3SetSerialExtResponse: Something has gone wrong, I have already received the full serial. I should not get this:  0|
            warning |processP3SetSerialExtResponse: Not enough data to parse serial string:  0|
            display "Received Serial Command" on "NotReceived" on 0 off
            sent 0F584000#
            call processP3EndConfigurationResponse 0F1A1AC0#E
            display "Configuration Complete" on "Empty" off 1 on
            sent 0F584000#
        )"_s);
    }
};

QTEST_GUILESS_MAIN(tst_p3)
#include "tst_p3.moc"
