#pragma once

#include <QLoggingCategory>

/// All messages go to Qt's default category. The category macros (qCDebug and its siblings) do
/// not evaluate what is streamed into a filtered message. Looked up once, the category costs a
/// filtered message no call either: five of them stand on the way of each data frame.
inline const QLoggingCategory &logCategory = *QLoggingCategory::defaultCategory();
