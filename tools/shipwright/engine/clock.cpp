#include "clock.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

namespace Shipwright {

SystemClock::SystemClock()
{
    m_timer.start();
}

qint64 SystemClock::now() const
{
    return m_timer.elapsed();
}

void SystemClock::wait(qint64 milliseconds)
{
    if (milliseconds <= 0) {
        QCoreApplication::processEvents();
        return;
    }
    QTimer wakeUp;
    wakeUp.setSingleShot(true);
    wakeUp.setTimerType(Qt::PreciseTimer);
    wakeUp.start(int(qMin<qint64>(milliseconds, 60'000)));
    QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
}

} // namespace Shipwright
