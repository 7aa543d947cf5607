#pragma once

#include "canbusmanager.h"

#include <QColor>
#include <QImage>
#include <QQmlApplicationEngine>
#include <QQmlContext>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSignalSpy>
#include <QTest>

using Qt::StringLiterals::operator""_s;

// Waits until the scene graph has drawn \a count frames. A canvas shows a change in the second.
inline void passFrames(QQuickWindow *window, int count = 2)
{
    QSignalSpy frames(window, &QQuickWindow::frameSwapped);
    for (int i = 1; i <= count; ++i) {
        window->update();
        QTRY_COMPARE_GE(frames.count(), i);
    }
}

// The window as the program loads it, with a manager that has no CAN device.
class StatusDisplay
{
public:
    StatusDisplay()
    {
        engine.rootContext()->setContextProperty(u"myCanBusManager"_s, &manager);
        engine.load(QUrl(u"qrc:/main.qml"_s));
        if (!engine.rootObjects().isEmpty())
            window = qobject_cast<QQuickWindow *>(engine.rootObjects().constFirst());
        if (!window || !QTest::qWaitForWindowExposed(window))
            qFatal("There is no window.");
    }

    void showProgress(double percent)
    {
        emit manager.statusUpdated(u"Receiving Configuration File"_s, true, QString(), true,
                                   percent, true);
        passFrames(window);
    }

    // The object with this id in main.qml.
    QObject *object(const QString &id) const { return qmlContext(window)->objectForName(id); }
    QQuickItem *item(const QString &id) const { return qobject_cast<QQuickItem *>(object(id)); }

    QQmlApplicationEngine engine;
    CanBusManager manager;
    QQuickWindow *window = nullptr;
};

// The colours in row \a y of an item, in the columns from \a from to before \a to, each once.
// "#646464" alone means that the whole stretch has this colour.
inline QString colours(const QImage &image, const QPointF &itemTopLeft, int y, int from, int to)
{
    QStringList names;
    const QPoint origin = itemTopLeft.toPoint();
    for (int x = from; x < to; ++x) {
        const QString name = image.pixelColor(origin + QPoint(x, y)).name();
        if (!names.contains(name))
            names.append(name);
    }
    return names.join(QLatin1Char(' '));
}
