#include "canbusmanager.h"
#include "log.h"

#include <QGuiApplication>
#include <QLocale>
#include <QQmlApplicationEngine>
#include <QQmlContext>
#include <QTranslator>
#include <QUrl>

#include <malloc.h>

int main(int argc, char *argv[])
{
    // One heap for all threads: the QML loader's own heap would grow page by page.
    mallopt(M_ARENA_MAX, 1);

    QGuiApplication app(argc, argv);

    QTranslator translator;
    const QStringList uiLanguages = QLocale::system().uiLanguages();
    for (const QString &language : uiLanguages) {
        const QString baseName = QLatin1StringView("Dockhand_") + QLocale(language).name();
        if (translator.load(QLatin1StringView(":/i18n/") + baseName)) {
            QCoreApplication::installTranslator(&translator);
            break;
        }
    }

    QQmlApplicationEngine engine;
    CanBusManager canBusManager;
    if (!canBusManager.init()) {
        qCCritical(logCategory) << "Moorline: Failed to initialize CAN device.";
        return -1;
    }

    engine.rootContext()->setContextProperty(QStringLiteral("myCanBusManager"), &canBusManager);
    const QUrl url(QStringLiteral("qrc:/main.qml"));
    QObject::connect(
        &engine, &QQmlApplicationEngine::objectCreated, &app,
        [url](const QObject *object, const QUrl &objectUrl) {
            if (!object && objectUrl == url)
                QCoreApplication::exit(-1);
        },
        Qt::QueuedConnection);
    engine.load(url);
    return QGuiApplication::exec();
}
