#include "kv_multipacket_transfer.h"

#include <QTest>

#include <algorithm>
#include <tuple>

/// The transfer session record.
class tst_kv_multipacket_transfer : public QObject
{
    Q_OBJECT

private:
    using Record = KV_MultiPacket_Transfer;
    using Flag = decltype(Record::infoFlag);
    static_assert(sizeof(Flag) == 1);

    /// In the order of their declaration.
    static constexpr std::tuple<
        QFile Record::*, QString Record::*, quint32 Record::*, quint32 Record::*, bool Record::*,
        quint32 Record::*, quint32 Record::*, quint32 Record::*, quint32 Record::*, Flag Record::*,
        quint32 Record::*, quint32 Record::*, qint32 Record::*, QByteArray Record::*,
        quint32 Record::*, quint32 Record::*, QByteArray Record::*, QByteArray Record::*>
        fields{&Record::outputFile,      &Record::outputFilePath,     &Record::fileSize,
               &Record::fileType,        &Record::transferInProgress, &Record::infoParam1,
               &Record::infoParam2,      &Record::infoParam3,         &Record::infoFrameLimit,
               &Record::infoFlag,        &Record::numberOfBlocks,     &Record::currentBlockNumber,
               &Record::blockDataLength, &Record::blockBuffer,        &Record::expectedFrameNumber,
               &Record::framesToFollow,  &Record::auxBuffer1,         &Record::auxBuffer2};

private slots:
    void fieldsStandInOrder()
    {
        const Record record;
        const auto addresses = std::apply(
            [&record](auto... field) { return QList<const void *>{&(record.*field)...}; }, fields);
        QVERIFY(std::is_sorted(addresses.cbegin(), addresses.cend()));
    }

    void fieldsAreEmptyAndZeroAtFirst()
    {
        const Record record;
        const auto isInitial = [](const auto &value) {
            if constexpr (std::is_same_v<decltype(value), const QFile &>)
                return !value.isOpen() && value.fileName().isEmpty();
            else
                return value == std::decay_t<decltype(value)>{};
        };
        std::apply([&](auto... field) { QVERIFY((isInitial(record.*field) && ...)); }, fields);
    }

    void metaObjectHasNothingOfItsOwn()
    {
        const QMetaObject &meta = Record::staticMetaObject;
        QCOMPARE(meta.className(), "KV_MultiPacket_Transfer");
        QCOMPARE(meta.superClass(), &QObject::staticMetaObject);
        QCOMPARE(meta.methodCount(), meta.methodOffset());
        QCOMPARE(meta.propertyCount(), meta.propertyOffset());
        QCOMPARE(meta.enumeratorCount(), meta.enumeratorOffset());
    }

    void constructorTakesAParent()
    {
        QObject parent;
        const auto *const record = new Record(&parent);
        QCOMPARE(record->parent(), &parent);
        QCOMPARE(Record().parent(), nullptr);
    }

    void destructionClosesTheFile()
    {
        QFile file(QStringLiteral("received"));
        {
            Record record;
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
