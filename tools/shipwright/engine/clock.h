#pragma once

#include <QElapsedTimer>

namespace Shipwright {

/// Time as the engine sees it, so that tests can let hours pass in no time.
class Clock
{
public:
    virtual ~Clock() = default;

    /// Milliseconds since an arbitrary start; never goes back.
    virtual qint64 now() const = 0;
    /// Handles events until at least one was handled or \a milliseconds have passed.
    virtual void wait(qint64 milliseconds) = 0;
};

class SystemClock final : public Clock
{
public:
    SystemClock();

    qint64 now() const override;
    void wait(qint64 milliseconds) override;

private:
    QElapsedTimer m_timer;
};

} // namespace Shipwright
