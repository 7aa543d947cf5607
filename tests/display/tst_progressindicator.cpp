#include "statusdisplay.h"

#include <QElapsedTimer>
#include <QQmlComponent>

#include <cmath>
#include <limits>
#include <memory>

const QColor Track(0x64, 0x64, 0x64);
const QColor Fill(0xfa, 0xc8, 0x00);
const QColor Mark(Qt::black);
const QColor Background(Qt::white);

class ProgressIndicatorTest : public QObject
{
    Q_OBJECT

private:
    void show(const QVariantMap &properties = {})
    {
        m_window = std::make_unique<QQuickWindow>();
        m_window->setColor(Background);
        m_window->resize(400, 400);
        QQmlComponent component(&m_engine, QUrl(u"qrc:/ProgressIndicator.qml"_s));
        m_indicator = qobject_cast<QQuickItem *>(component.createWithInitialProperties(properties));
        QVERIFY(m_indicator);
        m_indicator->setParent(m_window.get());
        m_indicator->setParentItem(m_window->contentItem());
        m_window->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
        passFrames(m_window.get());
    }

    // Sets a property and lets it be painted.
    void change(const char *property, const QVariant &value)
    {
        QVERIFY(m_indicator->setProperty(property, value));
        passFrames(m_window.get());
    }

    // The object inside the component that has this property.
    QObject *part(const char *property) const
    {
        for (QObject *child : m_indicator->children()) {
            if (child->metaObject()->indexOfProperty(property) >= 0)
                return child;
        }
        return nullptr;
    }

    // The pixel so many degrees clockwise from twelve o'clock.
    QColor onRing(const QImage &image, double degrees, double radius = 184) const
    {
        const double angle = qDegreesToRadians(degrees);
        return image.pixelColor(int(std::floor(200 + radius * std::sin(angle))),
                                int(std::floor(200 - radius * std::cos(angle))));
    }

    QImage grab() const { return m_window->grabWindow(); }

    QQmlEngine m_engine;
    std::unique_ptr<QQuickWindow> m_window;
    QQuickItem *m_indicator = nullptr;

private slots:
    void init() { QTest::failOnWarning(QRegularExpression(u".*"_s)); }

    void cleanup() { m_window.reset(); }

    void hasTheDefault_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::newRow("width") << QVariant(400.0);
        QTest::newRow("height") << QVariant(400.0);
        QTest::newRow("percent") << QVariant(0.25);
        QTest::newRow("pathwidthRatio") << QVariant(0.14);
        QTest::newRow("trackColor") << QVariant(QColor(0x64, 0x64, 0x64));
        QTest::newRow("pColor") << QVariant(QColor(0xfa, 0xc8, 0x00));
        QTest::newRow("endMarkColor") << QVariant(QColor(0, 0, 0));
        QTest::newRow("endMarkEnabled") << QVariant(true);
        QTest::newRow("orientationHorizontal") << QVariant(true);
        QTest::newRow("flashing") << QVariant(false);
        QTest::newRow("opacity") << QVariant(1.0);
    }

    void hasTheDefault()
    {
        QFETCH(const QVariant, value);
        show();
        QVERIFY(m_indicator->inherits("QQuickCanvasItem"));
        const QVariant found = m_indicator->property(QTest::currentDataTag());
        QCOMPARE(found.metaType(), value.metaType());
        QCOMPARE(found, value);
    }

    void hasNoFurtherPropertyOrSignal()
    {
        show();
        const QMetaObject *type = m_indicator->metaObject();
        QCOMPARE(type->propertyCount() - type->propertyOffset(), 8);
        QStringList signalsBesidesNotifiers;
        for (int i = type->methodOffset(); i < type->methodCount(); ++i) {
            const QString signature = QString::fromLatin1(type->method(i).methodSignature());
            if (!signature.endsWith(QLatin1String("Changed()")))
                signalsBesidesNotifiers.append(signature);
        }
        QCOMPARE(signalsBesidesNotifiers, QStringList{u"resetFlash()"_s});
    }

    void derivesItsMeasures_data()
    {
        QTest::addColumn<QVariantMap>("properties");
        QTest::addColumn<QVariantMap>("measures");

        QTest::newRow("at first") << QVariantMap{}
                                  << QVariantMap{
                                         {u"xCenter"_s, 200.0},     {u"yCenter"_s, 200.0},
                                         {u"pradius"_s, 184.0},     {u"pwidth"_s, 28.0},
                                         {u"fullAngle"_s, 1.57075}, {u"endMarkLength"_s, 0.036}};
        QTest::newRow("as the window's bar")
            << QVariantMap{{u"width"_s, 430},
                           {u"height"_s, 59},
                           {u"pathwidthRatio"_s, 0.28},
                           {u"percent"_s, 1.0}}
            << QVariantMap{{u"xCenter"_s, 215.0},   {u"yCenter"_s, 29.5},
                           {u"pradius"_s, 182.9},   {u"pwidth"_s, 60.2},
                           {u"fullAngle"_s, 6.283}, {u"endMarkLength"_s, 0.036}};
    }

    void derivesItsMeasures()
    {
        QFETCH(const QVariantMap, properties);
        QFETCH(const QVariantMap, measures);
        show();
        for (auto it = properties.begin(); it != properties.end(); ++it)
            QVERIFY(m_indicator->setProperty(it.key().toLatin1().constData(), it.value()));
        const QObject *d = part("fullAngle");
        QVERIFY(d);
        for (auto it = measures.begin(); it != measures.end(); ++it) {
            const QByteArray name = it.key().toLatin1();
            QVERIFY2(qFuzzyCompare(d->property(name.constData()).toDouble(), it.value().toDouble()),
                     name.constData());
        }
    }

    // Default size: the stroke is 28 pixels wide around row 200, so rows 186 to 213.
    void barIsTrackFillAndMark()
    {
        show({{u"percent"_s, 0.5}});
        const QImage image = grab();
        for (const int y : {186, 200, 213}) {
            QCOMPARE(colours(image, {}, y, 0, 200), u"#fac800"_s);
            QCOMPARE(colours(image, {}, y, 200, 210), u"#000000"_s);
            QCOMPARE(colours(image, {}, y, 210, 400), u"#646464"_s);
        }
    }

    void barLeavesTheRestOfTheCanvasClear()
    {
        show();
        const QImage image = grab();
        for (const int y : {0, 185, 214, 399})
            QCOMPARE(colours(image, {}, y, 0, 400), u"#ffffff"_s);
    }

    void ringFillsFromTwelveToThreeOClock()
    {
        show({{u"orientationHorizontal"_s, false}});
        const QImage image = grab();
        for (const int degrees : {1, 10, 45, 80, 88})
            QCOMPARE(onRing(image, degrees), Fill);
        for (const int degrees : {92, 100, 180, 270, 350, 359})
            QCOMPARE(onRing(image, degrees), Track);
    }

    void ringIsAsWideAsItsStroke()
    {
        show({{u"orientationHorizontal"_s, false}});
        const QImage image = grab();
        for (const int radius : {0, 100, 168, 200}) {
            QCOMPARE(onRing(image, 45, radius), Background);
            QCOMPARE(onRing(image, 225, radius), Background);
        }
        for (const int radius : {172, 184, 196}) {
            QCOMPARE(onRing(image, 45, radius), Fill);
            QCOMPARE(onRing(image, 225, radius), Track);
        }
    }

    // 0.036 radians at radius 184 are 6.6 pixels, half of them on each side of the fill's end.
    void ringMarkSitsAtTheFillEnd()
    {
        show({{u"orientationHorizontal"_s, false}});
        const QImage image = grab();
        QCOMPARE(image.pixelColor(384, 195), Fill);
        for (const int y : {197, 198, 199, 200, 201, 202})
            QCOMPARE(image.pixelColor(384, y), Mark);
        QCOMPARE(image.pixelColor(384, 204), Track);
    }

    // At 0.5 and with an unseen fill, the track runs from six o'clock past nine and twelve o'clock
    // to 3.15 x 2, which is 3 pixels past three o'clock.
    void ringTrackOvershootsTheFullTurn()
    {
        show({{u"orientationHorizontal"_s, false},
              {u"percent"_s, 0.5},
              {u"pColor"_s, QColor(Qt::transparent)},
              {u"endMarkEnabled"_s, false}});
        const QImage image = grab();
        for (const int degrees : {181, 270, 359, 1, 89})
            QCOMPARE(onRing(image, degrees), Track);
        for (const int y : {200, 201, 202})
            QCOMPARE(image.pixelColor(384, y), Track);
        QCOMPARE(image.pixelColor(384, 205), Background);
        for (const int degrees : {93, 135, 179})
            QCOMPARE(onRing(image, degrees), Background);
    }

    void markIsLeftOutWhenDisabled()
    {
        const auto blackPixels = [this] {
            const QImage image = grab();
            int count = 0;
            for (int y = 0; y < 400; ++y)
                for (int x = 0; x < 400; ++x)
                    count += image.pixelColor(x, y) == Mark;
            return count;
        };
        for (const bool horizontal : {true, false}) {
            show({{u"orientationHorizontal"_s, horizontal}});
            QVERIFY(blackPixels() > 100);
            change("endMarkEnabled", false);
            QCOMPARE(blackPixels(), 0);
        }
    }

    void repaintClearsWhatWasThere()
    {
        show({{u"percent"_s, 1.0}});
        QVERIFY(m_indicator->setProperty("trackColor", QColor(Qt::transparent)));
        change("percent", 0.25);
        const QImage image = grab();
        QCOMPARE(colours(image, {}, 200, 0, 100), u"#fac800"_s);
        QCOMPARE(colours(image, {}, 200, 100, 110), u"#000000"_s);
        QCOMPARE(colours(image, {}, 200, 110, 400), u"#ffffff"_s);
    }

    void numbersOutOfRangeAreSurvived_data()
    {
        using Limits = std::numeric_limits<double>;
        QTest::addColumn<double>("percent");
        QTest::newRow("not a number") << Limits::quiet_NaN();
        QTest::newRow("infinity") << Limits::infinity();
        QTest::newRow("minus infinity") << -Limits::infinity();
        QTest::newRow("huge") << 1e300;
        QTest::newRow("minus huge") << -1e300;
        QTest::newRow("many turns") << 65535.0;
        QTest::newRow("below 0") << -0.5;
    }

    void numbersOutOfRangeAreSurvived()
    {
        QFETCH(const double, percent);
        for (const bool horizontal : {true, false}) {
            show({{u"orientationHorizontal"_s, horizontal}});
            change("percent", percent);
            change("percent", 0.25);
            const QImage image = grab();
            QCOMPARE(horizontal ? image.pixelColor(50, 200) : onRing(image, 45), Fill);
            QCOMPARE(horizontal ? image.pixelColor(300, 200) : onRing(image, 225), Track);
        }
    }

    void changeRequestsRepaint_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<int>("repaints");
        QTest::newRow("pathwidthRatio") << QVariant(0.2) << 1;
        QTest::newRow("percent") << QVariant(0.3) << 1;
        QTest::newRow("width") << QVariant(300) << 1;
        QTest::newRow("pColor") << QVariant(QColor(Qt::blue)) << 1;
        QTest::newRow("trackColor") << QVariant(QColor(Qt::blue)) << 1;
        QTest::newRow("height") << QVariant(300) << 1;
        QTest::newRow("endMarkEnabled") << QVariant(false) << 1;
        QTest::newRow("endMarkColor") << QVariant(QColor(Qt::blue)) << 0;
        QTest::newRow("orientationHorizontal") << QVariant(false) << 0;
        QTest::newRow("flashing") << QVariant(true) << 0;
        QTest::newRow("opacity") << QVariant(0.25) << 0;
    }

    void changeRequestsRepaint()
    {
        QFETCH(const QVariant, value);
        QFETCH(const int, repaints);
        show();
        QSignalSpy paints(m_indicator, SIGNAL(paint(QRect)));
        QVERIFY(m_indicator->setProperty(QTest::currentDataTag(), value));
        passFrames(m_window.get(), 3);
        QTRY_COMPARE(paints.count(), repaints);
    }

    void unpaintedChangeShowsAtTheNextRepaint()
    {
        show();
        change("endMarkColor", QColor(Qt::blue));
        QCOMPARE(grab().pixelColor(105, 200), Mark);
        change("percent", 0.5);
        QCOMPARE(grab().pixelColor(205, 200), QColor(Qt::blue));
        change("orientationHorizontal", false);
        QCOMPARE(grab().pixelColor(205, 200), QColor(Qt::blue));
        change("percent", 0.25);
        QCOMPARE(grab().pixelColor(205, 200), Background);
        QCOMPARE(onRing(grab(), 45), Fill);
    }

    void blinksOnceASecondWhileFlashing()
    {
        show();
        QElapsedTimer clock;
        clock.start();
        QVERIFY(m_indicator->setProperty("flashing", true));
        QCOMPARE(m_indicator->opacity(), 1.0);
        QTRY_COMPARE_WITH_TIMEOUT(m_indicator->opacity(), 0.25, 3000);
        QCOMPARE_GE(clock.elapsed(), 900);
        QTRY_COMPARE_WITH_TIMEOUT(m_indicator->opacity(), 1.0, 3000);
        QCOMPARE_GE(clock.elapsed(), 1900);
        QTRY_COMPARE_WITH_TIMEOUT(m_indicator->opacity(), 0.25, 3000);

        const QObject *timer = part("triggeredOnStart");
        QVERIFY(timer);
        QCOMPARE(timer->property("interval"), QVariant(1000));
        QCOMPARE(timer->property("repeat"), QVariant(true));
        QCOMPARE(timer->property("triggeredOnStart"), QVariant(false));
        QCOMPARE(timer->property("running"), QVariant(true));
    }

    void tickTurnsAnyOtherOpacityIntoOne()
    {
        show();
        QObject *timer = part("triggeredOnStart");
        QVERIFY(timer);
        m_indicator->setOpacity(0.99);
        QVERIFY(QMetaObject::invokeMethod(timer, "triggered"));
        QCOMPARE(m_indicator->opacity(), 1.0);
        QVERIFY(QMetaObject::invokeMethod(timer, "triggered"));
        QCOMPARE(m_indicator->opacity(), 0.25);
    }

    void opacityStaysWhenFlashingEnds()
    {
        show({{u"flashing"_s, true}});
        QObject *timer = part("triggeredOnStart");
        QVERIFY(timer);
        QCOMPARE(timer->property("running"), QVariant(true));
        QVERIFY(QMetaObject::invokeMethod(timer, "triggered"));
        QVERIFY(m_indicator->setProperty("flashing", false));
        QCOMPARE(timer->property("running"), QVariant(false));
        QTest::qWait(1200);
        QCOMPARE(m_indicator->opacity(), 0.25);
    }

    void resetFlashMakesOpaque()
    {
        show();
        m_indicator->setOpacity(0.25);
        QVERIFY(QMetaObject::invokeMethod(m_indicator, "resetFlash"));
        QCOMPARE(m_indicator->opacity(), 1.0);
        QCOMPARE(m_indicator->property("flashing"), QVariant(false));
    }
};

QTEST_MAIN(ProgressIndicatorTest)
#include "tst_progressindicator.moc"
