#pragma once

#include <QLoggingCategory>

/// All messages go to Qt's default category. The category macros (qCDebug and its siblings) do
/// not evaluate what is streamed into a filtered message, so that it costs nothing per frame.
inline const QLoggingCategory &logCategory()
{
    return *QLoggingCategory::defaultCategory();
}
