#include "wire.h"

#include <QTest>

/// Identifiers as they are packed and taken apart.
class tst_wire : public QObject
{
    Q_OBJECT

private slots:
    void fieldsLieWhereTheWireHasThem_data();
    void fieldsLieWhereTheWireHasThem();
    void fieldTakesItsBitsAlone();
    void fieldDropsWhatDoesNotFit();
    void numbersAreThoseOfTheWire_data();
    void numbersAreThoseOfTheWire();
    void p3Identifiers();
    void p6Identifiers();
    void p6DataFrameIdentifiers();
    void oversizedArgumentsStayInTheirFields_data();
    void oversizedArgumentsStayInTheirFields();
};

void tst_wire::fieldsLieWhereTheWireHasThem_data()
{
    QTest::addColumn<quint32>("mask");
    QTest::addColumn<quint32>("expected");

    QTest::newRow("protocol type") << Wire::protocolType.mask() << 0x1C000000u;
    QTest::newRow("source node") << Wire::sourceNode.mask() << 0x03E00000u;
    QTest::newRow("destination node") << Wire::destinationNode.mask() << 0x001F0000u;
    QTest::newRow("P3 response") << Wire::P3::response.mask() << 0x00004000u;
    QTest::newRow("P3 slot") << Wire::P3::slot.mask() << 0x00001800u;
    QTest::newRow("P3 interface") << Wire::P3::interfaceNumber.mask() << 0x000003C0u;
    QTest::newRow("P3 operation") << Wire::P3::operation.mask() << 0x0000003Fu;
    QTest::newRow("P3 event number") << Wire::P3::eventNumber.mask() << 0x00003FFFu;
    QTest::newRow("response number") << Wire::responseNumber.mask() << 0x000003FFu;
    QTest::newRow("P6 type") << Wire::P6::type.mask() << 0x0000F000u;
    QTest::newRow("P6 command/response") << Wire::P6::commandResponse.mask() << 0x00000400u;
    QTest::newRow("P6 frame number") << Wire::DataFrame::frameNumber.mask() << 0x000003F0u;
    QTest::newRow("version") << Wire::P6::versionField.mask() << 0xFCu;
    QTest::newRow("high bit of the frame limit")
        << Wire::TransferInfoResponse::frameLimitHighField.mask() << 0x01u;
}

void tst_wire::fieldsLieWhereTheWireHasThem()
{
    QFETCH(quint32, mask);
    QTEST(mask, "expected");
}

void tst_wire::fieldTakesItsBitsAlone()
{
    QCOMPARE(Wire::protocolType.of(0x0F1A02C0), 3u);
    QCOMPARE(Wire::sourceNode.of(0x0F1A02C0), 24u);
    QCOMPARE(Wire::destinationNode.of(0x0F1A02C0), 26u);
    QCOMPARE(Wire::P3::interfaceNumber.of(0x0F1A02C0), 11u);
    QCOMPARE(Wire::P3::operation.of(0x0F1A02C0), 0u);
    QCOMPARE(Wire::P3::slot.of(0x0F5858BA), 3u);
    QCOMPARE(Wire::responseNumber.of(0x0F5858BA), 186u);
    QCOMPARE(Wire::P6::type.of(0x1B1AF3FF), 15u);
    QCOMPARE(Wire::DataFrame::frameNumber.of(0x1B1AF3FF), 63u);
    QCOMPARE(Wire::protocolType.of(0xFFFFFFFF), 7u);
    QCOMPARE(Wire::P6::versionField.of(0x0B), 2u);
}

void tst_wire::fieldDropsWhatDoesNotFit()
{
    QCOMPARE(Wire::P3::slot.max(), 3u);
    QCOMPARE(Wire::P3::slot.pack(3), 0x1800u);
    QCOMPARE(Wire::P3::slot.pack(4), 0u);
    QCOMPARE(Wire::P3::slot.pack(0xFFFFFFFF), 0x1800u);
}

void tst_wire::numbersAreThoseOfTheWire_data()
{
    QTest::addColumn<quint32>("number");
    QTest::addColumn<quint32>("expected");

    QTest::newRow("protocol P3") << Wire::protocolP3 << 3u;
    QTest::newRow("protocol P5") << Wire::protocolP5 << 5u;
    QTest::newRow("protocol P6") << Wire::protocolP6 << 6u;
    QTest::newRow("Shipwright") << Wire::nodeShipwright << 24u;
    QTest::newRow("Dockhand") << Wire::nodeDockhand << 26u;
    QTest::newRow("Dockhand's second node") << Wire::nodeDockhandAlt << 14u;
    QTest::newRow("success") << Wire::resultSuccess << 0u;
    QTest::newRow("Transfer Info rejected") << Wire::TransferInfo::rejected << 29u;
    QTest::newRow("Initiate Transfer rejected") << Wire::InitiateTransfer::rejected << 30u;
    QTest::newRow("failure") << Wire::resultFailure << 186u;
    QTest::newRow("interface") << Wire::P3::interfaceShipwright << 11u;
    QTest::newRow("start of configuration") << Wire::StartConfiguration::operation << 0u;
    QTest::newRow("set date and time") << Wire::SetDateTime::operation << 1u;
    QTest::newRow("set serial") << Wire::SetSerial::operation << 2u;
    QTest::newRow("set serial ext") << Wire::SetSerialExt::operation << 3u;
    QTest::newRow("end of configuration") << Wire::EndConfiguration::operation << 4u;
    QTest::newRow("Transfer Info") << Wire::TransferInfo::type << 0u;
    QTest::newRow("Initiate Transfer") << Wire::InitiateTransfer::type << 1u;
    QTest::newRow("Record Start") << Wire::RecordStart::type << 2u;
    QTest::newRow("Record End") << Wire::RecordEnd::type << 3u;
    QTest::newRow("Transfer Complete") << Wire::TransferComplete::type << 4u;
    QTest::newRow("Data Frame") << Wire::DataFrame::type << 15u;
    QTest::newRow("protocol version") << Wire::P6::version << 2u;
    QTest::newRow("configuration file") << Wire::FileType::configuration << 0u;
    QTest::newRow("menu file") << Wire::FileType::menu << 1u;
    QTest::newRow("generic file") << Wire::FileType::generic << 2u;
    QTest::newRow("package file") << Wire::FileType::package << 3u;
    QTest::newRow("frames of a record") << quint32(Wire::RecordStart::maxFrames) << 64u;
    QTest::newRow("bytes of a frame") << quint32(Wire::DataFrame::size) << 8u;
}

void tst_wire::numbersAreThoseOfTheWire()
{
    QFETCH(quint32, number);
    QTEST(number, "expected");
}

void tst_wire::p3Identifiers()
{
    QCOMPARE(Wire::P3::commandId(24, 26, 0, 11, 0), 0x0F1A02C0u);
    QCOMPARE(Wire::P3::commandId(24, 14, 2, 11, 4), 0x0F0E12C4u);
    QCOMPARE(Wire::P3::responseId(26, 24, 0, 0), 0x0F584000u);
    QCOMPARE(Wire::P3::responseId(26, 24, 0, 186), 0x0F5840BAu);
    QCOMPARE(Wire::P3::responseId(26, 24, 3, 186), 0x0F5858BAu);
    QCOMPARE(Wire::P3::eventId(26, 24, 0x3FFF), 0x0F583FFFu);
}

void tst_wire::p6Identifiers()
{
    QCOMPARE(Wire::P6::messageId(26, 24, 0, 0, 0), 0x1B580000u);
    QCOMPARE(Wire::P6::messageId(26, 24, 0, 0, 29), 0x1B58001Du);
    QCOMPARE(Wire::P6::messageId(26, 24, 1, 0, 30), 0x1B58101Eu);
    QCOMPARE(Wire::P6::messageId(26, 24, 3, 0, 186), 0x1B5830BAu);
    QCOMPARE(Wire::P6::messageId(24, 26, 4, 1, 0), 0x1B1A4400u);
}

void tst_wire::p6DataFrameIdentifiers()
{
    QCOMPARE(Wire::DataFrame::messageId(24, 26, 0), 0x1B1AF000u);
    QCOMPARE(Wire::DataFrame::messageId(24, 26, 1), 0x1B1AF010u);
    QCOMPARE(Wire::DataFrame::messageId(24, 14, 63), 0x1B0EF3F0u);
}

void tst_wire::oversizedArgumentsStayInTheirFields_data()
{
    QTest::addColumn<quint32>("identifier");
    QTest::addColumn<quint32>("expected");

    const quint32 all = 0xFFFFFFFF;
    QTest::newRow("source") << Wire::P3::commandId(32, 0, 0, 0, 0) << 0x0C000000u;
    QTest::newRow("destination") << Wire::P3::commandId(0, 32, 0, 0, 0) << 0x0C000000u;
    QTest::newRow("slot") << Wire::P3::commandId(0, 0, 4, 0, 0) << 0x0C000000u;
    QTest::newRow("interface") << Wire::P3::commandId(0, 0, 0, 16, 0) << 0x0C000000u;
    QTest::newRow("operation") << Wire::P3::commandId(0, 0, 0, 11, 64) << 0x0C0002C0u;
    QTest::newRow("response number") << Wire::P3::responseId(0, 0, 0, 0x400) << 0x0C004000u;
    QTest::newRow("event number") << Wire::P3::eventId(0, 0, 0x4000) << 0x0C000000u;
    QTest::newRow("P6 type") << Wire::P6::messageId(0, 0, 16, 0, 0) << 0x18000000u;
    QTest::newRow("command/response") << Wire::P6::messageId(0, 0, 0, 2, 0) << 0x18000000u;
    QTest::newRow("P6 response number") << Wire::P6::messageId(0, 0, 0, 0, 1024) << 0x18000000u;
    QTest::newRow("frame number") << Wire::DataFrame::messageId(0, 0, 64) << 0x1800F000u;
    QTest::newRow("every bit of a command")
        << Wire::P3::commandId(all, all, all, all, all) << 0x0FFF1BFFu;
    QTest::newRow("every bit of a response")
        << Wire::P3::responseId(all, all, all, all) << 0x0FFF5BFFu;
    QTest::newRow("every bit of an event") << Wire::P3::eventId(all, all, all) << 0x0FFF3FFFu;
    QTest::newRow("every bit of a P6 message")
        << Wire::P6::messageId(all, all, all, all, all) << 0x1BFFF7FFu;
}

void tst_wire::oversizedArgumentsStayInTheirFields()
{
    QFETCH(quint32, identifier);
    QTEST(identifier, "expected");
}

QTEST_APPLESS_MAIN(tst_wire)
#include "tst_wire.moc"
