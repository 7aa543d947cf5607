#include "statusdisplay.h"

#include <QDateTime>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QQmlProperty>
#include <QScreen>
#include <QTranslator>

#include <cstdlib>
#include <ctime>
#include <limits>

// A picture of the progress bar.
class Bar
{
public:
    explicit Bar(const StatusDisplay &display)
        : topLeft(display.item(u"pi_progress"_s)->mapToScene({0, 0})),
          image(display.window->grabWindow())
    {
    }

    // The colours of these columns in its first, middle and last row, which are the same.
    QString operator()(int from, int to) const
    {
        QStringList rows;
        for (const int y : {0, 29, 58})
            rows.append(colours(image, topLeft, y, from, to));
        rows.removeDuplicates();
        return rows.join(QLatin1Char('|'));
    }

    const QPointF topLeft;
    const QImage image;
};

// Records the changes of a property.
class Recorder : public QObject
{
    Q_OBJECT

public:
    Recorder(const StatusDisplay &display, const QString &id, const QString &property,
             QStringList *log)
        : m_property(display.object(id), property),
          m_entry(id + QLatin1Char('.') + property),
          m_log(log)
    {
        m_property.connectNotifySignal(this, SLOT(record()));
    }

private slots:
    void record() { m_log->append(m_entry + QLatin1Char('=') + m_property.read().toString()); }

private:
    QQmlProperty m_property;
    QString m_entry;
    QStringList *m_log;
};

static void compareText(const QQuickItem *item, const QString &text, int pixelSize)
{
    QVERIFY(item);
    QVERIFY(item->inherits("QQuickText"));
    QCOMPARE(item->property("text").toString(), text);
    QCOMPARE(item->property("color").value<QColor>(), QColor(0xf4, 0xf4, 0xf4));
    QCOMPARE(item->property("font").value<QFont>().pixelSize(), pixelSize);
}

// Qt puts centred items on whole pixels.
static void compareCentre(double start, double length, double centre)
{
    QVERIFY(length > 0);
    QCOMPARE_LE(qAbs(start + length / 2 - centre), 0.5);
}

// Shows where a text is translated and in what context.
class MarkingTranslator : public QTranslator
{
    Q_OBJECT

public:
    bool isEmpty() const override { return false; }
    QString translate(const char *context, const char *source, const char *, int) const override
    {
        return u"%1<%2>"_s.arg(QLatin1StringView(context), QLatin1StringView(source));
    }
};

class MainTest : public QObject
{
    Q_OBJECT

private slots:
    void init() { QTest::failOnWarning(QRegularExpression(u".*"_s)); }

    void resourcesHoldTheDisplayAndTheCatalogue()
    {
        QStringList files;
        QDirIterator it(u":/"_s, QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString file = it.next();
            if (!file.startsWith(u":/qt-project.org/"_s) && !file.startsWith(u":/qpdf/"_s))
                files.append(file);
        }
        files.sort();
        QCOMPARE(files,
                 QStringList({u":/ProgressIndicator.qml"_s, u":/Theme.qml"_s,
                              u":/i18n/Dockhand_en_US.qm"_s, u":/main.qml"_s,
                              u":/qtquickcontrols2.conf"_s}));
    }

    void catalogueNamesItsLanguageAndHoldsNoMessage()
    {
        QTranslator translator;
        QVERIFY(translator.load(u":/i18n/Dockhand_en_US"_s));
        QCOMPARE(translator.language(), u"en_US"_s);
        QVERIFY(translator.isEmpty());
    }

    void fillsTheScreen()
    {
        StatusDisplay display;
        QVERIFY(display.window->isVisible());
        QCOMPARE(display.window->visibility(), QWindow::FullScreen);
        const QSize screen = QGuiApplication::primaryScreen()->size();
        QVERIFY(screen.width() > 200);
        QTRY_COMPARE(display.window->geometry(), QRect(QPoint(0, 0), screen));
        QCOMPARE(display.window->contentItem()->size(), QSizeF(screen));
        QCOMPARE(display.item(u"topBanner"_s)->width(), screen.width());
    }

    void windowHasTitleAndColour()
    {
        StatusDisplay display;
        QCOMPARE(display.window->title(), u"Dockhand Application"_s);
        QCOMPARE(display.window->color(), QColor(0x5e, 0x5c, 0x64));
        QVERIFY(display.window->inherits("QQuickApplicationWindow"));
        QCOMPARE(display.object(u"mainWindow"_s), display.window);
        const QImage image = display.window->grabWindow();
        QCOMPARE(image.pixelColor(10, 90).name(), u"#5e5c64"_s);
        QCOMPARE(image.pixelColor(10, 300).name(), u"#5e5c64"_s);
    }

    void bannerSpansTheTop()
    {
        StatusDisplay display;
        const QQuickItem *banner = display.item(u"topBanner"_s);
        QCOMPARE(QRectF(banner->position(), banner->size()),
                 QRectF(0, 0, display.window->width(), 90));
        QVERIFY(banner->inherits("QQuickRectangle"));
        QCOMPARE(banner->property("color").value<QColor>(), QColor(0x15, 0x15, 0x15));
        const QImage image = display.window->grabWindow();
        QCOMPARE(image.pixelColor(0, 0).name(), u"#151515"_s);
        QCOMPARE(image.pixelColor(display.window->width() - 1, 89).name(), u"#151515"_s);
    }

    void titleIsCentredInTheBanner()
    {
        StatusDisplay display;
        const QQuickItem *title = display.item(u"tb_ProgramTitle"_s);
        compareText(title, u"Saltmarsh Lumenfold Dockhand"_s, 32);
        QCOMPARE(title->parentItem(), display.item(u"topBanner"_s));
        compareCentre(title->x(), title->width(), display.window->width() / 2.0);
        compareCentre(title->y(), title->height(), 45);
        QVERIFY(title->isVisible());
    }

    void clockIsAtTheRightOfTheBanner()
    {
        StatusDisplay display;
        const QQuickItem *time = display.item(u"tb_TimeDisplay"_s);
        compareText(time, u"00:01"_s, 24);
        QCOMPARE(time->parentItem(), display.item(u"topBanner"_s));
        QCOMPARE(time->x() + time->width(), display.window->width() - 12.0);
        compareCentre(time->y(), time->height(), 45);
        QVERIFY(time->isVisible());
    }

    void firstLineWaitsForTheConnection()
    {
        StatusDisplay display;
        const QQuickItem *line = display.item(u"tb_ActionName1"_s);
        compareText(line, u"Waiting for Connection..."_s, 40);
        QCOMPARE(line->y(), 200.0);
        compareCentre(line->x(), line->width(), display.window->width() / 2.0);
        QVERIFY(line->isVisible());
    }

    void secondLineIsHiddenAtFirst()
    {
        StatusDisplay display;
        const QQuickItem *line = display.item(u"tb_ActionName2"_s);
        compareText(line, u"Action 2 Name Goes Here"_s, 40);
        QCOMPARE(line->y(), 260.0);
        compareCentre(line->x(), line->width(), display.window->width() / 2.0);
        QVERIFY(!line->isVisible());
    }

    void progressIsHiddenAtFirst()
    {
        StatusDisplay display;
        const QQuickItem *progress = display.item(u"pi_progress"_s);
        QCOMPARE(progress->y(), 330.0);
        QCOMPARE(progress->size(), QSizeF(430, 59));
        compareCentre(progress->x(), progress->width(), display.window->width() / 2.0);
        QVERIFY(!progress->isVisible());
        QCOMPARE(progress->property("percent"), QVariant(0.7));
        QCOMPARE(progress->property("pathwidthRatio"), QVariant(0.28));
        QCOMPARE(progress->property("pColor").value<QColor>(), QColor(0xfa, 0xc8, 0x00));
        QCOMPARE(progress->property("endMarkEnabled"), QVariant(true));
        QCOMPARE(progress->property("orientationHorizontal"), QVariant(true));
        QCOMPARE(progress->property("flashing"), QVariant(false));
        QCOMPARE(progress->property("trackColor").value<QColor>(), QColor(0x64, 0x64, 0x64));
        QCOMPARE(progress->property("endMarkColor").value<QColor>(), QColor(0, 0, 0));
    }

    void versionIsInTheBottomRightCorner()
    {
        StatusDisplay display;
        const QQuickItem *version = display.item(u"tb_VersionLabel"_s);
        compareText(version, u"v01.02.000"_s, 22);
        const QPointF corner = version->mapToScene({version->width(), version->height()});
        QCOMPARE(corner, QPointF(display.window->width() - 12, display.window->height() - 12));
        QVERIFY(version->isVisible());
    }

    void themeIsAnItemOfTheWindow()
    {
        StatusDisplay display;
        const QQuickItem *theme = display.item(u"theme"_s);
        QVERIFY(theme);
        QCOMPARE(theme->property("dropShadowOffset"), QVariant(5));
        // The bar takes its colour from here.
        QVERIFY(display.object(u"theme"_s)->setProperty("yellow", QColor(Qt::blue)));
        QCOMPARE(display.item(u"pi_progress"_s)->property("pColor").value<QColor>(),
                 QColor(Qt::blue));
    }

    void everyTextButTheVersionIsTranslated()
    {
        MarkingTranslator translator;
        QCoreApplication::installTranslator(&translator);
        const StatusDisplay display;
        const auto text = [&display](const QString &id) {
            return display.item(id)->property("text").toString();
        };
        QCOMPARE(display.window->title(), u"main<Dockhand Application>"_s);
        QCOMPARE(text(u"tb_ProgramTitle"_s), u"main<Saltmarsh Lumenfold Dockhand>"_s);
        QCOMPARE(text(u"tb_TimeDisplay"_s), u"main<00:01>"_s);
        QCOMPARE(text(u"tb_ActionName1"_s), u"main<Waiting for Connection...>"_s);
        QCOMPARE(text(u"tb_ActionName2"_s), u"main<Action 2 Name Goes Here>"_s);
        QCOMPARE(text(u"tb_VersionLabel"_s), u"v01.02.000"_s);
    }

    void clockShowsLocalTimeAfterASecond_data()
    {
        QTest::addColumn<QTime>("time");
        // One-digit hours and minutes get a zero; an hour after noon shows the 24-hour format.
        QTest::newRow("morning") << QTime(5, 7);
        QTest::newRow("afternoon") << QTime(15, 30);
    }

    void clockShowsLocalTimeAfterASecond()
    {
        QFETCH(QTime, time);
        const QTime utc = QDateTime::currentDateTimeUtc().time();
        const int ahead = (time.hour() - utc.hour()) * 60 + time.minute() - utc.minute();
        // The shorter way round the clock: no zone is more than half a day from UTC.
        const int offset = (ahead + 36 * 60) % (24 * 60) - 12 * 60;
        const int distance = std::abs(offset);
        // In TZ, a zone ahead of UTC has a minus.
        qputenv("TZ",
                u"TEST%1%2:%3"_s.arg(offset > 0 ? u"-"_s : u"+"_s)
                    .arg(distance / 60)
                    .arg(distance % 60)
                    .toLatin1());
        tzset();

        QElapsedTimer elapsed;
        elapsed.start();
        StatusDisplay display;
        const QObject *timer = display.object(u"ti_oneSecTimer"_s);
        QCOMPARE(timer->property("interval"), QVariant(1000));
        QCOMPARE(timer->property("repeat"), QVariant(true));
        QCOMPARE(timer->property("running"), QVariant(true));

        const auto text = [&display] {
            return display.item(u"tb_TimeDisplay"_s)->property("text").toString();
        };
        QSignalSpy changes(display.item(u"tb_TimeDisplay"_s), SIGNAL(textChanged(QString)));
        QTRY_COMPARE_WITH_TIMEOUT(changes.count(), 1, 3000);
        QCOMPARE_GE(elapsed.elapsed(), 900);
        const QDateTime now = QDateTime::currentDateTimeUtc().addSecs(qint64(offset) * 60);
        const QStringList thisMinuteOrTheLast{now.toString(u"hh:mm"_s),
                                              now.addSecs(-2).toString(u"hh:mm"_s)};
        QVERIFY2(thisMinuteOrTheLast.contains(text()), qPrintable(text()));

        // The clock is set again every second.
        QVERIFY(display.object(u"tb_TimeDisplay"_s)->setProperty("text", u"x"_s));
        QTRY_VERIFY_WITH_TIMEOUT(text() != u"x"_s, 3000);
    }

    void emissionReplacesAllSixValues()
    {
        StatusDisplay display;
        const auto shown = [&display] {
            QStringList values;
            for (const auto &[id, property] :
                 {std::pair(u"tb_ActionName1"_s, "text"), std::pair(u"tb_ActionName2"_s, "text"),
                  std::pair(u"pi_progress"_s, "percent")}) {
                const QQuickItem *item = display.item(id);
                values += item->property(property).toString()
                    + (item->isVisible() ? u" on"_s : u" off"_s);
            }
            return values.join(u", "_s);
        };
        emit display.manager.statusUpdated(u"Connected to Shipwright"_s, true,
                                           u"Waiting for transfer"_s, true, 0.375, true);
        QCOMPARE(shown(), u"Connected to Shipwright on, Waiting for transfer on, 0.375 on"_s);
        emit display.manager.statusUpdated(u"one"_s, false, u"two"_s, false, 0.0, false);
        QCOMPARE(shown(), u"one off, two off, 0 off"_s);
    }

    void emissionIsAssignedInTheOrderOfItsArguments()
    {
        StatusDisplay display;
        QStringList log;
        const Recorder recorders[] = {
            {display, u"pi_progress"_s, u"visible"_s, &log},
            {display, u"tb_ActionName2"_s, u"text"_s, &log},
            {display, u"tb_ActionName1"_s, u"visible"_s, &log},
            {display, u"pi_progress"_s, u"percent"_s, &log},
            {display, u"tb_ActionName1"_s, u"text"_s, &log},
            {display, u"tb_ActionName2"_s, u"visible"_s, &log},
        };
        emit display.manager.statusUpdated(u"one"_s, false, u"two"_s, true, 0.5, true);
        QCOMPARE(log,
                 QStringList({u"tb_ActionName1.text=one"_s, u"tb_ActionName1.visible=false"_s,
                              u"tb_ActionName2.text=two"_s, u"tb_ActionName2.visible=true"_s,
                              u"pi_progress.percent=0.5"_s, u"pi_progress.visible=true"_s}));
    }

    void secondEmissionChangesOnlyWhatDiffers()
    {
        StatusDisplay display;
        emit display.manager.statusUpdated(u"Receiving Menu File"_s, true, QString(), true, 0.25,
                                           true);
        QStringList log;
        const Recorder recorders[] = {
            {display, u"tb_ActionName1"_s, u"text"_s, &log},
            {display, u"tb_ActionName1"_s, u"visible"_s, &log},
            {display, u"tb_ActionName2"_s, u"text"_s, &log},
            {display, u"tb_ActionName2"_s, u"visible"_s, &log},
            {display, u"pi_progress"_s, u"percent"_s, &log},
            {display, u"pi_progress"_s, u"visible"_s, &log},
            {display, u"pi_progress"_s, u"pColor"_s, &log},
            {display, u"pi_progress"_s, u"endMarkEnabled"_s, &log},
        };
        emit display.manager.statusUpdated(u"Receiving Menu File"_s, true, QString(), true, 0.5,
                                           true);
        QCOMPARE(log, QStringList{u"pi_progress.percent=0.5"_s});
    }

    void linesStayCentredAndAtTheirHeight()
    {
        StatusDisplay display;
        for (const QString &text : {u"x"_s, u"Received Configuration File"_s, u"Done"_s}) {
            emit display.manager.statusUpdated(text, true, text, true, 1.0, true);
            for (const auto &[id, y] :
                 {std::pair(u"tb_ActionName1"_s, 200.0), std::pair(u"tb_ActionName2"_s, 260.0)}) {
                const QQuickItem *line = display.item(id);
                QCOMPARE(line->y(), y);
                compareCentre(line->x(), line->width(), display.window->width() / 2.0);
            }
            QCOMPARE(display.item(u"pi_progress"_s)->y(), 330.0);
        }
    }

    void emptyVisibleLineKeepsTheLayout()
    {
        StatusDisplay display;
        emit display.manager.statusUpdated(QString(), true, u"Done"_s, true, 1.0, true);
        const QQuickItem *empty = display.item(u"tb_ActionName1"_s);
        QVERIFY(empty->isVisible());
        QCOMPARE(empty->property("text").toString(), QString());
        QCOMPARE(empty->y(), 200.0);
        QCOMPARE(display.item(u"tb_ActionName2"_s)->y(), 260.0);
        QCOMPARE(display.item(u"pi_progress"_s)->y(), 330.0);
        passFrames(display.window);
        const QImage image = display.window->grabWindow();
        for (int y = 200; y < 255; ++y)
            QCOMPARE(colours(image, {}, y, 0, image.width()), u"#5e5c64"_s);
    }

    // At a quarter the fill ends in the middle of column 107, the mark in the middle of column 117.
    void barShowsFillMarkAndTrack_data()
    {
        QTest::addColumn<QList<double>>("percents");
        QTest::addColumn<QString>("stretches");
        QTest::newRow("at zero") << QList{0.0} << u"0-10 #000000, 10-430 #646464"_s;
        QTest::newRow("at a quarter")
            << QList{0.25} << u"0-107 #fac800, 108-117 #000000, 118-430 #646464"_s;
        const QString half = u"0-215 #fac800, 215-225 #000000, 225-430 #646464"_s;
        QTest::newRow("at a half") << QList{0.5} << half;
        QTest::newRow("yellow again below one") << QList{1.0, 0.5} << half;
        QTest::newRow("the last of several") << QList{0.25, 0.75, 1.0} << u"0-430 #64c832"_s;
    }

    void barShowsFillMarkAndTrack()
    {
        QFETCH(const QList<double>, percents);
        QFETCH(const QString, stretches);
        StatusDisplay display;
        for (const double percent : percents)
            emit display.manager.statusUpdated(QString(), true, QString(), true, percent, true);
        passFrames(display.window);
        const Bar bar(display);
        QStringList painted;
        for (const QString &stretch : stretches.split(u", "_s)) {
            const QString columns = stretch.section(u' ', 0, 0);
            painted += columns + u' '
                + bar(columns.section(u'-', 0, 0).toInt(), columns.section(u'-', 1).toInt());
        }
        QCOMPARE(painted.join(u", "_s), stretches);
    }

    // The mark begins 0.43 pixels before the right edge, so that it darkens the last column.
    void barJustBelowOneIsYellowWithItsMarkAtTheEdge()
    {
        StatusDisplay display;
        display.showProgress(0.999);
        const Bar bar(display);
        QCOMPARE(bar(0, 429), u"#fac800"_s);
        const QColor last = bar.image.pixelColor((bar.topLeft + QPointF(429, 29)).toPoint());
        QVERIFY2(last.red() < 0xc0, qPrintable(last.name()));
        QCOMPARE(display.item(u"pi_progress"_s)->property("endMarkEnabled"), QVariant(true));
    }

    void barAtOneIsGreenWithoutMark()
    {
        StatusDisplay display;
        display.showProgress(1.0);
        const Bar bar(display);
        QCOMPARE(bar(0, 430), u"#64c832"_s);
        QCOMPARE(display.item(u"pi_progress"_s)->property("endMarkEnabled"), QVariant(false));
    }

    void barAboveOneStaysGreen()
    {
        StatusDisplay display;
        display.showProgress(1.7);
        const Bar bar(display);
        QCOMPARE(bar(0, 430), u"#64c832"_s);
        QCOMPARE(display.item(u"pi_progress"_s)->property("percent"), QVariant(1.7));
        QCOMPARE(display.item(u"pi_progress"_s)->property("endMarkEnabled"), QVariant(false));
    }

    void barIsNotPaintedBesideItsPlace()
    {
        for (const double percent : {0.999, 1.7}) {
            StatusDisplay display;
            display.showProgress(percent);
            const Bar bar(display);
            for (const int y : {-1, 59})
                QCOMPARE(colours(bar.image, bar.topLeft, y, -20, 450), u"#5e5c64"_s);
            for (int y = 0; y < 59; ++y) {
                QCOMPARE(colours(bar.image, bar.topLeft, y, -20, 0), u"#5e5c64"_s);
                QCOMPARE(colours(bar.image, bar.topLeft, y, 430, 450), u"#5e5c64"_s);
            }
        }
    }

    void barSurvives_data()
    {
        QTest::addColumn<double>("percent");
        QTest::addColumn<QColor>("colour");
        QTest::addColumn<bool>("mark");
        const QColor yellow(0xfa, 0xc8, 0x00);
        const QColor green(0x64, 0xc8, 0x32);
        QTest::newRow("not a number")
            << std::numeric_limits<double>::quiet_NaN() << yellow << false;
        QTest::newRow("infinity") << std::numeric_limits<double>::infinity() << green << false;
        QTest::newRow("minus infinity")
            << -std::numeric_limits<double>::infinity() << yellow << true;
        QTest::newRow("65535 records of one") << 65535.0 << green << false;
    }

    void barSurvives()
    {
        QFETCH(const double, percent);
        QFETCH(const QColor, colour);
        QFETCH(const bool, mark);
        StatusDisplay display;
        display.showProgress(percent);
        const QQuickItem *progress = display.item(u"pi_progress"_s);
        QCOMPARE(progress->property("pColor").value<QColor>(), colour);
        QCOMPARE(progress->property("endMarkEnabled"), QVariant(mark));
        display.showProgress(0.5);
        const Bar bar(display);
        QCOMPARE(bar(0, 215), u"#fac800"_s);
        QCOMPARE(bar(215, 225), u"#000000"_s);
    }
};

QTEST_MAIN(MainTest)
#include "tst_main.moc"
