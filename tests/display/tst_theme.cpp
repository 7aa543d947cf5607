#include <QColor>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;

class ThemeTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<QObject> theme()
    {
        return std::unique_ptr<QObject>(
            QQmlComponent(&m_engine, QUrl(u"qrc:/Theme.qml"_s)).create());
    }

    QQmlEngine m_engine;

private slots:
    void init() { QTest::failOnWarning(QRegularExpression(u".*"_s)); }

    void isAnItem() { QVERIFY(qobject_cast<QQuickItem *>(theme().get())); }

    void hasTheProperty_data()
    {
        QTest::addColumn<QVariant>("value");

        const std::pair<const char *, const char *> colours[] = {
            {"background1", "#323232"}, {"background2", "#1e1e1e"},
            {"background3", "#646464"}, {"accent1", "#0099ff"},
            {"black", "#000000"},       {"white", "#ffffff"},
            {"borderColor", "#ffffff"}, {"green", "#64c832"},
            {"yellow", "#fac800"},      {"gray", "#7d7d7d"},
            {"red", "#fa0032"},         {"darkGray", "#646464"},
            {"blue", "#0096fa"},        {"scrollbarBackground2", "#707070"},
        };
        for (const auto &[name, value] : colours)
            QTest::newRow(name) << QVariant(QColor(QLatin1String(value)));

        QTest::newRow("redString") << QVariant(u"#FA0032"_s);

        for (const int size : {80, 72, 68, 60, 58, 55, 50, 48, 40, 38, 36, 34, 32, 30,
                               28, 27, 26, 24, 23, 22, 21, 20, 18, 16, 15, 14, 13})
            QTest::addRow("fontSize%dpx", size) << QVariant(size);
        const std::pair<const char *, int> numbers[] = {
            {"dropShadowOffset", 5},     {"fontSizeExtraLarge", 60}, {"fontSizeLarge", 48},
            {"fontSizeMediumLarge", 40}, {"fontSizeMedium", 32},     {"fontSizeMediumSmall", 28},
            {"fontSizeSmall", 24},       {"fontSizeExtraSmall", 18}, {"fontSizeDefault", 32},
        };
        for (const auto &[name, value] : numbers)
            QTest::newRow(name) << QVariant(value);
    }

    void hasTheProperty()
    {
        QFETCH(const QVariant, value);
        const auto object = theme();
        QVERIFY(object);
        const QVariant found = object->property(QTest::currentDataTag());
        QCOMPARE(found.metaType(), value.metaType());
        QCOMPARE(found, value);
    }

    void hasNoFurtherProperty()
    {
        const auto object = theme();
        QVERIFY(object);
        const QMetaObject *type = object->metaObject();
        QCOMPARE(type->propertyCount() - type->propertyOffset(), 51);
    }

    void boundPropertyFollows_data()
    {
        QTest::addColumn<QByteArray>("source");
        QTest::addColumn<QVariant>("sourceValue");
        QTest::addColumn<QVariant>("value");

        const QVariant blue = QColor(Qt::blue);
        QTest::newRow("background3") << QByteArray("darkGray") << blue << blue;
        QTest::newRow("red") << QByteArray("redString") << QVariant(u"#0000ff"_s) << blue;

        const std::pair<const char *, const char *> sizes[] = {
            {"fontSizeExtraLarge", "fontSize60px"},  {"fontSizeLarge", "fontSize48px"},
            {"fontSizeMediumLarge", "fontSize40px"}, {"fontSizeMedium", "fontSize32px"},
            {"fontSizeMediumSmall", "fontSize28px"}, {"fontSizeSmall", "fontSize24px"},
            {"fontSizeExtraSmall", "fontSize18px"},  {"fontSizeDefault", "fontSizeMedium"},
        };
        for (const auto &[name, source] : sizes)
            QTest::newRow(name) << QByteArray(source) << QVariant(7) << QVariant(7);
    }

    void boundPropertyFollows()
    {
        QFETCH(const QByteArray, source);
        QFETCH(const QVariant, sourceValue);
        QFETCH(const QVariant, value);
        const auto object = theme();
        QVERIFY(object);
        QVERIFY(object->setProperty(source.constData(), sourceValue));
        QCOMPARE(object->property(QTest::currentDataTag()), value);
    }
};

QTEST_MAIN(ThemeTest)
#include "tst_theme.moc"
