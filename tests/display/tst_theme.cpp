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

private slots:
    void init();
    void isAnItem();
    void hasTheProperty_data();
    void hasTheProperty();
    void hasNoFurtherProperty();
    void boundPropertyFollows_data();
    void boundPropertyFollows();

private:
    std::unique_ptr<QObject> theme();

    QQmlEngine m_engine;
};

std::unique_ptr<QObject> ThemeTest::theme()
{
    return std::unique_ptr<QObject>(QQmlComponent(&m_engine, QUrl(u"qrc:/Theme.qml"_s)).create());
}

void ThemeTest::init()
{
    QTest::failOnWarning(QRegularExpression(u".*"_s));
}

void ThemeTest::isAnItem()
{
    QVERIFY(qobject_cast<QQuickItem *>(theme().get()));
}

void ThemeTest::hasTheProperty_data()
{
    QTest::addColumn<QVariant>("value");

    const struct
    {
        const char *name;
        const char *value;
    } colours[] = {
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

    const struct
    {
        const char *name;
        int value;
    } numbers[] = {
        {"dropShadowOffset", 5},     {"fontSize80px", 80},       {"fontSize72px", 72},
        {"fontSize68px", 68},        {"fontSize60px", 60},       {"fontSize58px", 58},
        {"fontSize55px", 55},        {"fontSize50px", 50},       {"fontSize48px", 48},
        {"fontSize40px", 40},        {"fontSize38px", 38},       {"fontSize36px", 36},
        {"fontSize34px", 34},        {"fontSize32px", 32},       {"fontSize30px", 30},
        {"fontSize28px", 28},        {"fontSize27px", 27},       {"fontSize26px", 26},
        {"fontSize24px", 24},        {"fontSize23px", 23},       {"fontSize22px", 22},
        {"fontSize21px", 21},        {"fontSize20px", 20},       {"fontSize18px", 18},
        {"fontSize16px", 16},        {"fontSize15px", 15},       {"fontSize14px", 14},
        {"fontSize13px", 13},        {"fontSizeExtraLarge", 60}, {"fontSizeLarge", 48},
        {"fontSizeMediumLarge", 40}, {"fontSizeMedium", 32},     {"fontSizeMediumSmall", 28},
        {"fontSizeSmall", 24},       {"fontSizeExtraSmall", 18}, {"fontSizeDefault", 32},
    };
    for (const auto &[name, value] : numbers)
        QTest::newRow(name) << QVariant(value);
}

void ThemeTest::hasTheProperty()
{
    QFETCH(const QVariant, value);
    const auto object = theme();
    QVERIFY(object);
    const QVariant found = object->property(QTest::currentDataTag());
    QCOMPARE(found.metaType(), value.metaType());
    QCOMPARE(found, value);
}

void ThemeTest::hasNoFurtherProperty()
{
    const auto object = theme();
    QVERIFY(object);
    const QMetaObject *type = object->metaObject();
    QCOMPARE(type->propertyCount() - type->propertyOffset(), 51);
}

void ThemeTest::boundPropertyFollows_data()
{
    QTest::addColumn<QByteArray>("source");
    QTest::addColumn<QVariant>("sourceValue");
    QTest::addColumn<QVariant>("value");

    const QVariant blue = QColor(Qt::blue);
    QTest::newRow("background3") << QByteArray("darkGray") << blue << blue;
    QTest::newRow("red") << QByteArray("redString") << QVariant(u"#0000ff"_s) << blue;

    const struct
    {
        const char *name;
        const char *source;
    } sizes[] = {
        {"fontSizeExtraLarge", "fontSize60px"},  {"fontSizeLarge", "fontSize48px"},
        {"fontSizeMediumLarge", "fontSize40px"}, {"fontSizeMedium", "fontSize32px"},
        {"fontSizeMediumSmall", "fontSize28px"}, {"fontSizeSmall", "fontSize24px"},
        {"fontSizeExtraSmall", "fontSize18px"},  {"fontSizeDefault", "fontSizeMedium"},
    };
    for (const auto &[name, source] : sizes)
        QTest::newRow(name) << QByteArray(source) << QVariant(7) << QVariant(7);
}

void ThemeTest::boundPropertyFollows()
{
    QFETCH(const QByteArray, source);
    QFETCH(const QVariant, sourceValue);
    QFETCH(const QVariant, value);
    const auto object = theme();
    QVERIFY(object);
    QVERIFY(object->setProperty(source.constData(), sourceValue));
    QCOMPARE(object->property(QTest::currentDataTag()), value);
}

QTEST_MAIN(ThemeTest)
#include "tst_theme.moc"
