#include "kv_multipacket_transfer.h"

#include <QMetaProperty>
#include <QTest>

#include <type_traits>

/// The transfer session record.
class tst_kv_multipacket_transfer : public QObject
{
    Q_OBJECT

private slots:
    void fieldsHaveTheirTypes();
    void fileIsClosedAndUnnamedAtFirst();
    void textsAndBuffersAreEmptyAtFirst();
    void numbersAreZeroAtFirst();
    void fieldsStandInOrder();
    void metaObjectHasNothingOfItsOwn();
    void constructorTakesAParent();
    void destructionClosesTheFile();
};

void tst_kv_multipacket_transfer::fieldsHaveTheirTypes()
{
    using Record = KV_MultiPacket_Transfer;
    static_assert(std::is_base_of_v<QObject, Record>);
    static_assert(std::is_same_v<decltype(Record::outputFile), QFile>);
    static_assert(std::is_same_v<decltype(Record::outputFilePath), QString>);
    static_assert(std::is_same_v<decltype(Record::fileSize), quint32>);
    static_assert(std::is_same_v<decltype(Record::fileType), quint32>);
    static_assert(std::is_same_v<decltype(Record::transferInProgress), bool>);
    static_assert(std::is_same_v<decltype(Record::infoParam1), quint32>);
    static_assert(std::is_same_v<decltype(Record::infoParam2), quint32>);
    static_assert(std::is_same_v<decltype(Record::infoParam3), quint32>);
    static_assert(std::is_same_v<decltype(Record::infoFrameLimit), quint32>);
    static_assert(sizeof(Record::infoFlag) == 1);
    static_assert(std::is_same_v<decltype(Record::numberOfBlocks), quint32>);
    static_assert(std::is_same_v<decltype(Record::currentBlockNumber), quint32>);
    static_assert(std::is_same_v<decltype(Record::blockDataLength), qint32>);
    static_assert(std::is_same_v<decltype(Record::blockBuffer), QByteArray>);
    static_assert(std::is_same_v<decltype(Record::expectedFrameNumber), quint32>);
    static_assert(std::is_same_v<decltype(Record::framesToFollow), quint32>);
    static_assert(std::is_same_v<decltype(Record::auxBuffer1), QByteArray>);
    static_assert(std::is_same_v<decltype(Record::auxBuffer2), QByteArray>);
}

void tst_kv_multipacket_transfer::fileIsClosedAndUnnamedAtFirst()
{
    const KV_MultiPacket_Transfer record;
    QVERIFY(!record.outputFile.isOpen());
    QCOMPARE(record.outputFile.fileName(), QString());
}

void tst_kv_multipacket_transfer::textsAndBuffersAreEmptyAtFirst()
{
    const KV_MultiPacket_Transfer record;
    QVERIFY(record.outputFilePath.isEmpty());
    QVERIFY(record.blockBuffer.isEmpty());
    QVERIFY(record.auxBuffer1.isEmpty());
    QVERIFY(record.auxBuffer2.isEmpty());
}

void tst_kv_multipacket_transfer::numbersAreZeroAtFirst()
{
    const KV_MultiPacket_Transfer record;
    QCOMPARE(record.fileSize, 0u);
    QCOMPARE(record.fileType, 0u);
    QCOMPARE(record.transferInProgress, false);
    QCOMPARE(record.infoParam1, 0u);
    QCOMPARE(record.infoParam2, 0u);
    QCOMPARE(record.infoParam3, 0u);
    QCOMPARE(record.infoFrameLimit, 0u);
    QCOMPARE(int(record.infoFlag), 0);
    QCOMPARE(record.numberOfBlocks, 0u);
    QCOMPARE(record.currentBlockNumber, 0u);
    QCOMPARE(record.blockDataLength, 0);
    QCOMPARE(record.expectedFrameNumber, 0u);
    QCOMPARE(record.framesToFollow, 0u);
}

void tst_kv_multipacket_transfer::fieldsStandInOrder()
{
    const KV_MultiPacket_Transfer record;
    const QList<const void *> fields{
        &record.outputFile,      &record.outputFilePath,     &record.fileSize,
        &record.fileType,        &record.transferInProgress, &record.infoParam1,
        &record.infoParam2,      &record.infoParam3,         &record.infoFrameLimit,
        &record.infoFlag,        &record.numberOfBlocks,     &record.currentBlockNumber,
        &record.blockDataLength, &record.blockBuffer,        &record.expectedFrameNumber,
        &record.framesToFollow,  &record.auxBuffer1,         &record.auxBuffer2,
    };
    QVERIFY(std::is_sorted(fields.cbegin(), fields.cend()));
}

void tst_kv_multipacket_transfer::metaObjectHasNothingOfItsOwn()
{
    const QMetaObject &meta = KV_MultiPacket_Transfer::staticMetaObject;
    QCOMPARE(meta.className(), "KV_MultiPacket_Transfer");
    QCOMPARE(meta.superClass(), &QObject::staticMetaObject);
    QCOMPARE(meta.methodCount(), meta.methodOffset());
    QCOMPARE(meta.propertyCount(), meta.propertyOffset());
    QCOMPARE(meta.enumeratorCount(), meta.enumeratorOffset());
}

void tst_kv_multipacket_transfer::constructorTakesAParent()
{
    QObject parent;
    const auto *const record = new KV_MultiPacket_Transfer(&parent);
    QCOMPARE(record->parent(), &parent);
    QCOMPARE(KV_MultiPacket_Transfer().parent(), nullptr);
}

void tst_kv_multipacket_transfer::destructionClosesTheFile()
{
    {
        KV_MultiPacket_Transfer record;
        record.outputFile.setFileName(QStringLiteral("received"));
        QVERIFY(record.outputFile.open(QIODevice::WriteOnly));
        QCOMPARE(record.outputFile.write("held back"), 9);
    }
    QFile file(QStringLiteral("received"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), QByteArray("held back"));
    QVERIFY(file.remove());
}

QTEST_APPLESS_MAIN(tst_kv_multipacket_transfer)
#include "tst_kv_multipacket_transfer.moc"
