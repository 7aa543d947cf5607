#include "wire.h"

#include <QTest>

/// Identifiers as they are packed, and what no frame shows. All other numbers stand in the frames
/// of the other tests.
class tst_wire : public QObject
{
    Q_OBJECT

private slots:
    void fieldsLieWhereTheWireHasThem()
    {
        QCOMPARE(Wire::protocolType.mask(), 0x1C000000u);
        QCOMPARE(Wire::sourceNode.mask(), 0x03E00000u);
        QCOMPARE(Wire::destinationNode.mask(), 0x001F0000u);
        QCOMPARE(Wire::P3::response.mask(), 0x00004000u);
        QCOMPARE(Wire::P3::slot.mask(), 0x00001800u);
        QCOMPARE(Wire::P3::interfaceNumber.mask(), 0x000003C0u);
        QCOMPARE(Wire::P3::operation.mask(), 0x0000003Fu);
        QCOMPARE(Wire::P3::eventNumber.mask(), 0x00003FFFu);
        QCOMPARE(Wire::responseNumber.mask(), 0x000003FFu);
        QCOMPARE(Wire::P6::type.mask(), 0x0000F000u);
        QCOMPARE(Wire::P6::commandResponse.mask(), 0x00000400u);
        QCOMPARE(Wire::DataFrame::frameNumber.mask(), 0x000003F0u);
        QCOMPARE(Wire::P6::versionField.mask(), 0xFCu);
        QCOMPARE(Wire::TransferInfoResponse::frameLimitHighField.mask(), 0x01u);
        QCOMPARE(Wire::RecordStart::maxFrames, 64); // only the service tool counts up to it
    }

    void identifiersHoldTheirFields()
    {
        QCOMPARE(Wire::P3::commandId(24, 26, 0, 11, 0), 0x0F1A02C0u);
        QCOMPARE(Wire::P3::commandId(24, 14, 2, 11, 4), 0x0F0E12C4u);
        QCOMPARE(Wire::P3::responseId(26, 24, 0, 0), 0x0F584000u);
        QCOMPARE(Wire::P3::responseId(26, 24, 0, 186), 0x0F5840BAu);
        QCOMPARE(Wire::P3::responseId(26, 24, 3, 186), 0x0F5858BAu);
        QCOMPARE(Wire::P3::eventId(26, 24, 0x3FFF), 0x0F583FFFu);
        QCOMPARE(Wire::P6::messageId(26, 24, 0, 0, 0), 0x1B580000u);
        QCOMPARE(Wire::P6::messageId(26, 24, 0, 0, 29), 0x1B58001Du);
        QCOMPARE(Wire::P6::messageId(26, 24, 1, 0, 30), 0x1B58101Eu);
        QCOMPARE(Wire::P6::messageId(26, 24, 3, 0, 186), 0x1B5830BAu);
        QCOMPARE(Wire::P6::messageId(24, 26, 4, 1, 0), 0x1B1A4400u);
        QCOMPARE(Wire::DataFrame::messageId(24, 26, 0), 0x1B1AF000u);
        QCOMPARE(Wire::DataFrame::messageId(24, 26, 1), 0x1B1AF010u);
        QCOMPARE(Wire::DataFrame::messageId(24, 14, 63), 0x1B0EF3F0u);
    }

    void oversizedArgumentsStayInTheirFields()
    {
        const quint32 all = 0xFFFFFFFF;
        QCOMPARE(Wire::P3::commandId(32, 0, 0, 0, 0), 0x0C000000u);
        QCOMPARE(Wire::P3::commandId(0, 32, 0, 0, 0), 0x0C000000u);
        QCOMPARE(Wire::P3::commandId(0, 0, 4, 0, 0), 0x0C000000u);
        QCOMPARE(Wire::P3::commandId(0, 0, 0, 16, 0), 0x0C000000u);
        QCOMPARE(Wire::P3::commandId(0, 0, 0, 11, 64), 0x0C0002C0u);
        QCOMPARE(Wire::P3::responseId(0, 0, 0, 0x400), 0x0C004000u);
        QCOMPARE(Wire::P3::eventId(0, 0, 0x4000), 0x0C000000u);
        QCOMPARE(Wire::P6::messageId(0, 0, 16, 0, 0), 0x18000000u);
        QCOMPARE(Wire::P6::messageId(0, 0, 0, 2, 0), 0x18000000u);
        QCOMPARE(Wire::P6::messageId(0, 0, 0, 0, 1024), 0x18000000u);
        QCOMPARE(Wire::DataFrame::messageId(0, 0, 64), 0x1800F000u);
        QCOMPARE(Wire::P3::commandId(all, all, all, all, all), 0x0FFF1BFFu);
        QCOMPARE(Wire::P3::responseId(all, all, all, all), 0x0FFF5BFFu);
        QCOMPARE(Wire::P3::eventId(all, all, all), 0x0FFF3FFFu);
        QCOMPARE(Wire::P6::messageId(all, all, all, all, all), 0x1BFFF7FFu);
    }
};

QTEST_APPLESS_MAIN(tst_wire)
#include "tst_wire.moc"
