#include "kv_multipacket_transfer.h"

#include <QMetaProperty>
#include <QTest>

#include <algorithm>
#include <type_traits>

/// The transfer session record.
class tst_kv_multipacket_transfer : public QObject
{
    Q_OBJECT

private slots:
    void fieldsHaveTheirTypes()
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

    void fieldsAreEmptyAndZeroAtFirst()
    {
        const KV_MultiPacket_Transfer record;
        QVERIFY(!record.outputFile.isOpen());
        for (const QString &text : {record.outputFile.fileName(), record.outputFilePath})
            QCOMPARE(text, QString());
        for (const QByteArray &buffer : {record.blockBuffer, record.auxBuffer1, record.auxBuffer2})
            QCOMPARE(buffer, QByteArray());
        for (const quint32 number :
             {record.fileSize, record.fileType, record.infoParam1, record.infoParam2,
              record.infoParam3, record.infoFrameLimit, quint32(record.infoFlag),
              record.numberOfBlocks, record.currentBlockNumber, quint32(record.blockDataLength),
              record.expectedFrameNumber, record.framesToFollow})
            QCOMPARE(number, 0u);
        QVERIFY(!record.transferInProgress);
    }

    void fieldsStandInOrder()
    {
        const KV_MultiPacket_Transfer r;
        const QList<const void *> fields{
            &r.outputFile,      &r.outputFilePath,     &r.fileSize,
            &r.fileType,        &r.transferInProgress, &r.infoParam1,
            &r.infoParam2,      &r.infoParam3,         &r.infoFrameLimit,
            &r.infoFlag,        &r.numberOfBlocks,     &r.currentBlockNumber,
            &r.blockDataLength, &r.blockBuffer,        &r.expectedFrameNumber,
            &r.framesToFollow,  &r.auxBuffer1,         &r.auxBuffer2};
        QVERIFY(std::is_sorted(fields.cbegin(), fields.cend()));
    }

    void metaObjectHasNothingOfItsOwn()
    {
        const QMetaObject &meta = KV_MultiPacket_Transfer::staticMetaObject;
        QCOMPARE(meta.className(), "KV_MultiPacket_Transfer");
        QCOMPARE(meta.superClass(), &QObject::staticMetaObject);
        QCOMPARE(meta.methodCount(), meta.methodOffset());
        QCOMPARE(meta.propertyCount(), meta.propertyOffset());
        QCOMPARE(meta.enumeratorCount(), meta.enumeratorOffset());
    }

    void constructorTakesAParent()
    {
        QObject parent;
        const auto *const record = new KV_MultiPacket_Transfer(&parent);
        QCOMPARE(record->parent(), &parent);
        QCOMPARE(KV_MultiPacket_Transfer().parent(), nullptr);
    }

    void destructionClosesTheFile()
    {
        QFile file(QStringLiteral("received"));
        {
            KV_MultiPacket_Transfer record;
            record.outputFile.setFileName(file.fileName());
            QVERIFY(record.outputFile.open(QIODevice::WriteOnly));
            QCOMPARE(record.outputFile.write("held back"), 9);
        }
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), "held back");
        QVERIFY(file.remove());
    }
};

QTEST_APPLESS_MAIN(tst_kv_multipacket_transfer)
#include "tst_kv_multipacket_transfer.moc"
